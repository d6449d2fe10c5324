// The style of the report's page: for light and dark, for print, where closed details are shown
// too, down to the width of a phone.
#pragma once

namespace cardhost {

inline constexpr const char* reportStyle = R"css(
:root{color-scheme:light dark;--back:#fff;--card:#f5f6f8;--text:#1b1f24;--dim:#5a6572;--line:#c9d0d9;
--out:#0b62c4;--in:#3d7a2a;--bad:#b3261e;--badback:#fdeceb;--good:#2e6b1f;--goodback:#e9f5e4;
--unclear:#7a5200;--unclearback:#fdf3d8;--lanes:12rem}
@media(prefers-color-scheme:dark){:root{--back:#14171b;--card:#1d2127;--text:#e8ebef;--dim:#9aa6b3;
--line:#3a424d;--out:#79b4ff;--in:#8fd07a;--bad:#ff8a80;--badback:#3a1d1b;--good:#9bd989;--goodback:#1d2f18;
--unclear:#f0c469;--unclearback:#332a14}}
*{box-sizing:border-box}
body{margin:0 auto;max-width:62rem;padding:1.5rem 1rem 4rem;background:var(--back);color:var(--text);
font:15px/1.45 system-ui,"Segoe UI","DejaVu Sans",sans-serif}
h1{font-size:1.6rem;line-height:1.2;margin:0 0 .6rem}
h2{font-size:1.15rem;margin:2.2rem 0 .6rem}
h3{font-size:.95rem;margin:0 0 .3rem}
code,.hex{font:12.5px/1.5 ui-monospace,"Cascadia Mono","DejaVu Sans Mono",monospace;overflow-wrap:anywhere}
.outcome{display:inline-block;padding:.35rem .8rem;border-radius:.4rem;font-weight:600}
.outcome.good{background:var(--goodback);color:var(--good)}
.outcome.bad{background:var(--badback);color:var(--bad)}
.outcome.unclear{background:var(--unclearback);color:var(--unclear)}
.dim{color:var(--dim)}
.found{display:grid;grid-template-columns:repeat(auto-fit,minmax(min(20rem,100%),1fr));gap:.8rem}
.found section{background:var(--card);border-radius:.5rem;padding:.7rem .9rem;min-width:0}
.found dl{margin:0;display:grid;grid-template-columns:minmax(5.5rem,auto) 1fr;gap:.1rem .8rem}
.found dt{color:var(--dim)}
.found dd{margin:0;overflow-wrap:anywhere}
.strip{display:flex;height:2.2rem;border-radius:.4rem;overflow:hidden;background:var(--card);gap:1px}
.strip i{display:block;min-width:2px}
.times{list-style:none;padding:0;margin:.6rem 0 0}
.times li{display:flex;gap:.6rem;align-items:baseline}
.times b{flex:none;width:.8rem;height:.8rem;border-radius:.2rem}
.times span:nth-child(2){flex:1;min-width:0;overflow-wrap:anywhere}
.c0{background:#3b78c9}.c1{background:#c9822b}.c2{background:#5c9a3e}.c3{background:#8b5bb5}.c4{background:#b54a6a}
.c5{background:#7c8794}
.heads{position:sticky;top:0;z-index:1;background:var(--back);border-bottom:1px solid var(--line);padding:.4rem 0}
.heads div{width:var(--lanes);display:grid;grid-template-columns:1fr 1fr 1fr;text-align:center;font-weight:600;
font-size:.78rem}
details>summary{list-style:none;cursor:pointer}
details>summary::-webkit-details-marker{display:none}
.row{display:grid;grid-template-columns:var(--lanes) 1fr auto;align-items:stretch;min-height:2.1rem}
summary:focus-visible{outline:2px solid var(--out);outline-offset:-2px;border-radius:.3rem}
summary:hover .what{text-decoration:underline dotted}
.lanes{position:relative;background:
linear-gradient(var(--line),var(--line)) 16.66% 0/1px 100% no-repeat,
linear-gradient(var(--line),var(--line)) 50% 0/1px 100% no-repeat,
linear-gradient(var(--line),var(--line)) 83.34% 0/1px 100% no-repeat}
.arrow{position:absolute;height:0;border-top:2px solid var(--out);color:var(--out)}
.arrow.left{border-top:2px dashed var(--in);color:var(--in)}
.arrow.bad{border-color:var(--bad);color:var(--bad)}
.arrow.trial{border-color:var(--dim);color:var(--dim)}
.arrow::after{content:"";position:absolute;top:-6px;border:5px solid transparent}
.arrow.right::after{right:-1px;border-left-color:currentColor;border-right:0}
.arrow.left::after{left:-1px;border-right-color:currentColor;border-left:0}
.platform{left:16.66%;width:33.34%}
.card{left:50%;width:33.34%}
.past{left:16.66%;width:66.68%}
.up{top:.75rem}.down{bottom:.55rem}.middle{top:50%}
.text{padding:.3rem .2rem .3rem .7rem;min-width:0;overflow-wrap:anywhere}
.what{font-weight:600}
.side{padding:.3rem 0 .3rem .6rem;text-align:right;white-space:nowrap;color:var(--dim);font-variant-numeric:tabular-nums}
.call{border-bottom:1px solid var(--line)}
.call>summary{background:var(--card)}
.command .what{font-weight:500}
.command .text,.command .side{font-size:.9rem}
.badtext{color:var(--bad)}
.uncleartext{color:var(--unclear)}
.goodtext{color:var(--good)}
.inside{margin:0 0 .6rem var(--lanes);padding:.4rem .7rem;border-left:3px solid var(--line);font-size:.9rem;min-width:0}
.inside p{margin:.15rem 0}
.inside ul{margin:.1rem 0;padding-left:1.1rem}
.log{margin:0;padding:.3rem .7rem .3rem;list-style:none;margin-left:var(--lanes)}
.log li{font:12px/1.5 ui-monospace,"DejaVu Sans Mono",monospace;color:var(--dim);overflow-wrap:anywhere}
table{border-collapse:collapse}
td{padding:0 .8rem 0 0;vertical-align:top}
@media(max-width:40rem){:root{--lanes:7.8rem}body{padding:1rem .6rem 3rem;font-size:14px}
.heads div{font-size:.52rem;letter-spacing:-.02em}.lanes{grid-row:1/3}.row{grid-template-columns:var(--lanes) 1fr}
.side{grid-column:2;text-align:left;padding:0 .2rem .3rem .7rem;white-space:normal}
.inside,.log{margin-left:1rem}}
@media print{:root{color-scheme:light;--back:#fff;--card:#f5f6f8;--text:#000;--dim:#444;--line:#aaa;--out:#0b62c4;
--in:#3d7a2a;--bad:#b3261e;--badback:#fdeceb;--good:#2e6b1f;--goodback:#e9f5e4;
--unclear:#7a5200;--unclearback:#fdf3d8}
body{max-width:none;padding:0;font-size:10pt}.heads{position:static}.row,.strip,.found section{break-inside:avoid}
details::details-content{content-visibility:visible;block-size:auto}
*{-webkit-print-color-adjust:exact;print-color-adjust:exact}}
)css";

}  // namespace cardhost
