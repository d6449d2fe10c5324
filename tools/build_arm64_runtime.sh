#!/bin/sh
# Builds what ARM64 Windows programs are compiled against and linked with, which Debian has no package
# of: the mingw-w64 runtime and LLVM's libunwind, libc++abi and libc++, all static, from Debian's own
# source packages, by Debian's clang. Prints the folder that holds them, with the compilers
# bin/aarch64-w64-mingw32-clang and -clang++ that know their way in it.
#
#   tools/build_arm64_runtime.sh
set -eu

llvm=22
target=aarch64-w64-mingw32
here=$(cd "$(dirname "$0")" && pwd)
. "$here/cached_build.sh"

known() { apt-cache policy "$1" | sed -n 's/^  Candidate: //p'; }
mingw=$(known mingw-w64-common)
libcxx=$(known libc++-19-dev)
compiler=$(dpkg-query -W -f '${source:Version}' "clang-$llvm" 2>/dev/null) && [ -n "$mingw$libcxx" ] ||
    { echo "$0: run tools/install_packages.sh arm64 first" >&2; exit 1; }
recipe=$({ echo "$compiler"; cat "$0"; } | sha256sum | cut -c 1-12)
begin_cached_build "arm64-runtime-$mingw-libcxx-${libcxx#*:}-$recipe"

# The folders of the build must not stand in what is built, nor its moment.
SOURCE_DATE_EPOCH=0
export SOURCE_DATE_EPOCH
flags="-Os -DNDEBUG -ffunction-sections -fdata-sections -ffile-prefix-map=$work="

unpack() { # what was fetched; of LLVM only the folders that the runtimes are built of
    cd "$work" || return
    dpkg-source -x mingw-w64_*.dsc "$work/mingw-w64" || return
    mkdir llvm
    tar -C llvm --strip-components=1 --wildcards -xf llvm-toolchain-19_*.orig.tar.xz \
        '*/runtimes/*' '*/libcxx/*' '*/libcxxabi/*' '*/libunwind/*' '*/cmake/*' '*/libc/*' \
        '*/llvm/utils/llvm-lit/*'
}

# The compilers find headers and libraries below the folder that they stand in.
write_compilers() {
    mkdir -p "$1/bin"
    for language in '' ++; do
        cat >"$1/bin/$target-clang$language" <<COMPILER
#!/bin/sh
here=\$(cd "\$(dirname "\$0")/.." && pwd)
exec clang$language-$llvm --target=aarch64-w64-windows-gnu --sysroot="\$here" -fuse-ld=lld-$llvm \\
    -rtlib=compiler-rt -unwindlib=libunwind -stdlib=libc++ -Wno-unused-command-line-argument "\$@"
COMPILER
        chmod +x "$1/bin/$target-clang$language"
    done
}

headers() {
    mkdir -p "$work/headers" && cd "$work/headers" &&
        "$work/mingw-w64/mingw-w64-headers/configure" --host="$target" \
            --prefix="$work/done/$target" --with-default-msvcrt=ucrt &&
        make install && write_compilers "$work/done"
}

runtime() {
    mkdir -p "$work/crt" && cd "$work/crt" &&
        "$work/mingw-w64/mingw-w64-crt/configure" --host="$target" --prefix="$work/done/$target" \
            --with-default-msvcrt=ucrt --disable-lib32 --disable-lib64 --disable-libarm32 \
            --enable-libarm64 CC="$work/done/bin/$target-clang" AR="llvm-ar-$llvm" \
            RANLIB="llvm-ranlib-$llvm" DLLTOOL="llvm-dlltool-$llvm" CFLAGS="$flags" &&
        make -j"$(nproc)" && make install
}

# Wine for ARM64 has two traps: its own printf functions crash, so that libc++ takes mingw-w64's; and it loses
# the register by which the compiler finds a thread's own variables, which a throw needs, so that they are had
# by TlsGetValue, as in the x64 and x86 DLLs. What libc++abi says before it ends a process begins with
# __FILE__, also without assertions: there the library's name instead.
libraries() {
    flags="$flags -D__USE_MINGW_ANSI_STDIO=1 -femulated-tls"
    flags="$flags -Wno-builtin-macro-redefined -D__FILE__='\"libc++\"'"
    cmake -G Ninja -S "$work/llvm/runtimes" -B "$work/libraries" \
        -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=aarch64 -DCMAKE_BUILD_TYPE=MinSizeRel \
        -DCMAKE_INSTALL_PREFIX="$work/done/$target" \
        -DCMAKE_C_COMPILER="$work/done/bin/$target-clang" \
        -DCMAKE_CXX_COMPILER="$work/done/bin/$target-clang++" \
        -DCMAKE_ASM_COMPILER="$work/done/bin/$target-clang" \
        -DCMAKE_C_COMPILER_WORKS=ON -DCMAKE_CXX_COMPILER_WORKS=ON \
        -DCMAKE_AR="$(command -v "llvm-ar-$llvm")" -DCMAKE_RANLIB="$(command -v "llvm-ranlib-$llvm")" \
        -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_ASM_FLAGS="$flags" \
        -DLLVM_ENABLE_RUNTIMES='libunwind;libcxxabi;libcxx' -DLLVM_INCLUDE_TESTS=OFF \
        -DLIBUNWIND_USE_COMPILER_RT=ON -DLIBUNWIND_ENABLE_SHARED=OFF \
        -DLIBUNWIND_ENABLE_ASSERTIONS=OFF -DLIBCXXABI_ENABLE_ASSERTIONS=OFF \
        -DLIBCXXABI_USE_COMPILER_RT=ON -DLIBCXXABI_USE_LLVM_UNWINDER=ON -DLIBCXXABI_ENABLE_SHARED=OFF \
        -DLIBCXXABI_HAS_WIN32_THREAD_API=ON -DLIBCXXABI_NON_DEMANGLING_TERMINATE=ON \
        -DLIBCXX_USE_COMPILER_RT=ON -DLIBCXX_ENABLE_SHARED=OFF -DLIBCXX_ENABLE_STATIC_ABI_LIBRARY=ON \
        -DLIBCXX_HAS_WIN32_THREAD_API=ON -DLIBCXX_INCLUDE_BENCHMARKS=OFF -DLIBCXX_INCLUDE_TESTS=OFF \
        -DLIBCXX_INSTALL_MODULES=OFF &&
        cmake --build "$work/libraries" && cmake --install "$work/libraries"
}

licences() {
    cp "$work/mingw-w64/COPYING.MinGW-w64-runtime/COPYING.MinGW-w64-runtime.txt" "$work/done/" &&
        cp "$work/llvm/libcxx/LICENSE.TXT" "$work/done/COPYING.LLVM.txt" &&
        { echo "mingw-w64 $mingw"; echo "llvm-toolchain-19 $libcxx"; } >"$work/done/versions.txt"
}

step "Fetching Debian's source package mingw-w64 $mingw" fetch_source "mingw-w64=$mingw"
step "Fetching Debian's source package llvm-toolchain-19 $libcxx" fetch_source "llvm-toolchain-19=$libcxx"
step "Unpacking them" unpack
step "Installing the headers for ARM64 Windows" headers
step "Building the mingw-w64 runtime for ARM64 Windows, about a minute" runtime
step "Building libunwind, libc++abi and libc++ for ARM64 Windows, two minutes" libraries
step "Keeping their licences" licences
finish_cached_build
