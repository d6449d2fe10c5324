"""nginx on loopback, in front of a server of the test's: over http and over https."""
import contextlib
import pathlib
import shutil
import socket
import subprocess
import time

NGINX = shutil.which("nginx") or shutil.which("nginx", path="/usr/sbin:/usr/local/sbin")
# nginx is given a minute to start: far more than it needs.
PATIENCE = 60

CONFIGURATION = """
daemon off;
master_process off;
pid nginx.pid;
error_log error.log;
events {{}}
http {{
    log_format taken '$scheme|$request|$status';
    access_log access.log taken;
    client_body_temp_path temporary;
    proxy_temp_path temporary;
    fastcgi_temp_path temporary;
    uwsgi_temp_path temporary;
    scgi_temp_path temporary;
    server {{
        listen 127.0.0.1:{http};
        listen 127.0.0.1:{https} ssl;
        ssl_certificate server.pem;
        ssl_certificate_key server.key;
        location / {{
            proxy_pass http://127.0.0.1:{behind};
            proxy_http_version 1.1;
            proxy_set_header Host $http_host;
        }}
    }}
}}
"""


def openssl(folder, *arguments):
    subprocess.run(["openssl", *arguments], cwd=folder, check=True, capture_output=True)


def make_authority(folder):
    """A throw-away authority in authority.pem, authority.key and authority.der."""
    openssl(folder, "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
            "-subj", "/CN=Authority of a pairing test",
            "-addext", "keyUsage=critical,keyCertSign,cRLSign",
            "-keyout", "authority.key", "-out", "authority.pem")
    openssl(folder, "x509", "-in", "authority.pem", "-outform", "DER", "-out", "authority.der")


def issue(folder, host):
    """A certificate for a host, from the authority in the folder: server.pem, server.key."""
    openssl(folder, "req", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={host}",
            "-keyout", "server.key", "-out", "server.csr")
    (folder / "server.ext").write_text(
        f"subjectAltName=DNS:{host}\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n",
        encoding="ascii")
    openssl(folder, "x509", "-req", "-in", "server.csr", "-days", "2", "-extfile", "server.ext",
            "-CA", "authority.pem", "-CAkey", "authority.key", "-CAcreateserial",
            "-out", "server.pem")


class WebServer:
    """In front of the server on a loopback port, with the certificate of issue() in its folder."""

    def __init__(self, folder, behind):
        self.folder = pathlib.Path(folder)
        with contextlib.ExitStack() as stack:
            listeners = [stack.enter_context(socket.create_server(("127.0.0.1", 0)))
                         for _ in range(2)]
            self.http, self.https = (listener.getsockname()[1] for listener in listeners)
        (self.folder / "nginx.conf").write_text(
            CONFIGURATION.format(http=self.http, https=self.https, behind=behind),
            encoding="ascii")

    def __enter__(self):
        self.process = subprocess.Popen(
            [NGINX, "-p", f"{self.folder}/", "-c", "nginx.conf", "-e", "error.log"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        until = time.monotonic() + PATIENCE
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.https)).close()
                return self
            except OSError:
                if self.process.poll() is not None or time.monotonic() > until:
                    self.__exit__()
                    problem = (self.folder / "error.log").read_text(errors="replace")
                    raise RuntimeError(f"nginx did not start: {problem}") from None
                time.sleep(0.05)

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    def taken(self):
        """The requests as nginx recorded them, once it has ended: (scheme, request line, status)."""
        text = (self.folder / "access.log").read_text(encoding="utf-8")
        return [tuple(line.split("|")) for line in text.splitlines()]
