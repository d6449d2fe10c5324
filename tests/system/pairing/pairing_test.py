#!/usr/bin/env python3
"""Lets the directory client meet servers on loopback.

    pairing_test.py --client build/windows-x64/pairing_client.exe \
                    --launcher "tools/run_in_wine.sh x64" [unittest arguments]

The tests have a prefix of Wine of their own, build/wine/pairing, and let cardhost.exe beside the
client acquire a card with the finished driver. What Wine's WinHTTP does not show, since it keeps no
receive time-out and takes a connection's end for the end of a reply, tests/unit/pairing shows.
"""
import argparse
import base64
import json
import os
import pathlib
import re
import shlex
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest

from loopback_server import CHUNKED, LAST_CHUNK, LoopbackServer, chunk, drip, reply
from web_server import NGINX, WebServer, issue, make_authority

ACCEPTED, REFUSED, _, THREW = range(4)
# The sum of the client's time-outs in seconds, and what a busy machine may add to a program's run.
TIME_OUTS = 16
SLACK = 60
ANOMALOUS = ("AdAttributeService", "Receiving anomalous data. Abort.")
REPOSITORY = pathlib.Path(__file__).resolve().parents[3]
KEY = r"SOFTWARE\Kelmora\KelmoraID"

settings = argparse.Namespace(client="", launcher=[])


def closed_port():
    """A port on which nobody listens."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


class PairingTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="pairing-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_program(self, *command):
        """Runs a program and gives its exit code; its output is in self.output."""
        # A file, not a pipe: Wine's own processes outlive the program and would keep a pipe open.
        with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as error:
            done = subprocess.run([*settings.launcher, *map(str, command)], cwd=self.folder,
                                  stdin=subprocess.DEVNULL, stdout=output, stderr=error,
                                  timeout=300, check=False)
            output.seek(0)
            error.seek(0)
            self.output = output.read().decode(errors="replace")
            self.error = error.read().decode(errors="replace")
        return done.returncode

    def client(self, *arguments):
        """Runs the client and gives its exit code."""
        return self.run_program(settings.client, *arguments)

    def send(self, server, body="{}", scheme="http"):
        return self.client("send", server.url(scheme), body)

    def register(self, addresses, certificate=b"\x30\x82\x01\x00"):
        self.configure(addresses)
        (self.folder / "certificate.der").write_bytes(certificate)
        self.assertEqual(self.client("register", "certificate.der"), ACCEPTED)

    def configure(self, addresses):
        self.assertEqual(self.run_program("reg", "add", "HKLM\\" + KEY, "/v", "ADRSURL", "/t",
                                          "REG_SZ", "/d", addresses, "/f"), 0, self.output)

    def filed(self):
        """The lines of the log file, as (scope, message)."""
        path = self.folder / "minidriver.log"
        if not path.exists():
            return []
        lines = path.read_text(encoding="utf-8").splitlines()
        return [re.fullmatch(r"\[[-\d]+ [:\d]+\] \[(.*?)\] (.*)", line).groups() for line in lines]

    def assert_anomalous(self, outcome):
        self.assertEqual(outcome, REFUSED, self.output)
        self.assertEqual(self.filed(), [ANOMALOUS])
        self.assertIn(f"[ERROR] {ANOMALOUS[1]}", self.output)


class Request(PairingTest):
    def test_is_a_post_of_the_body_with_its_headers(self):
        with LoopbackServer(reply(b"done")) as server:
            self.assertEqual(self.send(server, '{"a" : "b"}'), ACCEPTED, self.output)
        (request,) = server.requests
        self.assertEqual(request.line, "POST /registercard HTTP/1.1")
        self.assertEqual(request.values("Host"), [b"127.0.0.1:%d" % server.port])
        self.assertEqual(request.values("Content-Type"), [b"application/json; charset: utf-8"])
        self.assertIn(b"application/json", b",".join(request.values("Accept")))
        self.assertEqual(request.values("Content-Length"), [b"11"])
        self.assertEqual(request.body, b'{"a" : "b"}')
        self.assertEqual(self.filed(), [])

    def test_names_no_readable_agent(self):
        with LoopbackServer() as server:
            self.assertEqual(self.send(server), ACCEPTED, self.output)
        (request,) = server.requests
        (agent,) = request.values("User-Agent")
        # The text's bytes in pairs, taken for wide text, which Wine sends as UTF-8.
        wide = b"user agent AdAttributeService\0".decode("utf-16-le")
        self.assertEqual(agent, wide.encode("utf-8"))

    def test_goes_to_the_one_path_whatever_stands_behind_the_port(self):
        with LoopbackServer() as server:
            self.assertEqual(self.client("send", server.url() + "/some/path", "{}"), ACCEPTED)
        self.assertEqual(server.requests[0].line, "POST /registercard HTTP/1.1")

    def test_throws_on_a_port_that_is_no_number(self):
        self.assertEqual(self.client("send", "http://127.0.0.1:port", "{}"), THREW)


class Reply(PairingTest):
    def test_without_a_body_is_accepted(self):
        with LoopbackServer(reply(b"")) as server:
            self.assertEqual(self.send(server), ACCEPTED, self.output)

    def test_of_an_error_status_with_a_short_body_is_accepted(self):
        with LoopbackServer(reply(b"no such thing", "404 Not Found")) as server:
            self.assertEqual(self.send(server), ACCEPTED, self.output)
        with LoopbackServer(reply(b"", "500 Internal Server Error")) as server:
            self.assertEqual(self.send(server), ACCEPTED, self.output)

    def test_of_4000_bytes_is_read(self):
        with LoopbackServer(reply(b"x" * 4000)) as server:
            self.assertEqual(self.send(server), ACCEPTED, self.output)
        self.assertIn("total: '4000'.", self.output)
        self.assertEqual(self.filed(), [])

    def test_in_chunks_of_which_the_last_passes_4000_bytes_is_read(self):
        def answer(connection):
            # The second chunk starts when the first has long been read.
            connection.sendall(CHUNKED + chunk(b"x" * 4000))
            time.sleep(2)
            connection.sendall(chunk(b"x" * 10) + LAST_CHUNK)

        with LoopbackServer(answer) as server:
            self.assertEqual(self.send(server), ACCEPTED, self.output)
        self.assertIn("total: '4010'.", self.output)

    def test_that_is_too_long_is_refused(self):
        with LoopbackServer(reply(b"x" * 100000)) as server:
            self.assert_anomalous(self.send(server))

    def test_without_end_is_refused(self):
        with LoopbackServer(drip(b"x" * 1000, 0)) as server:
            self.assert_anomalous(self.send(server))

    def test_that_drips_is_refused_when_the_time_is_spent(self):
        began = time.monotonic()
        with LoopbackServer(drip(b"x", 1)) as server:
            self.assert_anomalous(self.send(server))
        self.assertLess(time.monotonic() - began, TIME_OUTS + SLACK)

    def test_that_is_not_http_is_refused(self):
        with LoopbackServer(lambda connection: connection.sendall(b"\0" * 100)) as server:
            self.assertEqual(self.send(server), REFUSED, self.output)


class Encrypted(PairingTest):
    @unittest.skipUnless(shutil.which("openssl"), "no openssl")
    def test_server_that_the_machine_does_not_trust_is_refused(self):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1",
                        "-keyout", "key.pem", "-out", "certificate.pem"],
                       cwd=self.folder, check=True, capture_output=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.folder / "certificate.pem", self.folder / "key.pem")
        with LoopbackServer(wrap=lambda c: context.wrap_socket(c, server_side=True)) as server:
            self.assertEqual(self.send(server, scheme="https"), REFUSED, self.output)
        self.assertEqual(server.connections, 1)
        self.assertEqual(server.requests, [], "nothing of the request may reach it")

    def test_request_to_a_server_that_is_not_is_refused(self):
        with LoopbackServer() as server:
            self.assertEqual(self.send(server, scheme="https"), REFUSED, self.output)
        self.assertEqual(server.requests, [])


@unittest.skipUnless(NGINX, "no nginx")
@unittest.skipUnless(shutil.which("openssl"), "no openssl")
class WebServerTest(PairingTest):
    """nginx takes the requests, and the server behind it shows what it took."""

    HOST = "localhost"

    def setUp(self):
        super().setUp()
        self.behind = self.enterContext(LoopbackServer(reply(b"thank you")))
        web = self.folder / "web"
        web.mkdir()
        make_authority(web)
        issue(web, self.HOST)
        self.web = WebServer(web, self.behind.port)
        self.web.__enter__()
        self.addCleanup(self.web.__exit__)

    def trust_authority(self):
        """Makes the prefix trust the authority until the end of the test."""
        program = pathlib.Path(settings.client).with_name("trust_certificate.exe")
        self.addCleanup(self.run_program, program, "remove", "web/authority.der")
        self.assertEqual(self.run_program(program, "add", "web/authority.der"), 0)

    def assert_taken(self, scheme, host, body):
        """That nginx took this one request, whole."""
        (request,) = self.behind.requests
        self.assertEqual(request.line, "POST /registercard HTTP/1.1")
        self.assertEqual(request.values("Host"), [host.encode()])
        self.assertEqual(request.values("Content-Type"), [b"application/json; charset: utf-8"])
        self.assertIn(b"application/json", b",".join(request.values("Accept")))
        self.assertEqual(request.values("Content-Length"), [b"%d" % len(body)])
        self.assertEqual(request.body, body)
        self.assertEqual(self.web.taken(), [(scheme, "POST /registercard HTTP/1.1", "200")])


class WebServerInFront(WebServerTest):
    def test_takes_the_request_over_http(self):
        self.assertEqual(self.client("send", f"http://127.0.0.1:{self.web.http}", '{"a" : "b"}'),
                         ACCEPTED, self.output)
        self.assert_taken("http", f"127.0.0.1:{self.web.http}", b'{"a" : "b"}')

    def test_takes_the_request_over_https_where_its_authority_is_trusted(self):
        url = f"https://{self.HOST}:{self.web.https}"
        self.assertEqual(self.client("send", url, "{}"), REFUSED, "not trusted yet")
        self.assertEqual(self.behind.requests, [])
        self.trust_authority()
        self.assertEqual(self.client("send", url, '{"a" : "b"}'), ACCEPTED, self.output)
        self.assert_taken("https", f"{self.HOST}:{self.web.https}", b'{"a" : "b"}')

    def test_of_another_name_is_refused_though_its_authority_is_trusted(self):
        self.trust_authority()
        url = f"https://127.0.0.1:{self.web.https}"
        self.assertEqual(self.client("send", url, "{}"), REFUSED, self.output)
        self.assertEqual(self.behind.requests, [])


class FinishedDriver(WebServerTest):
    """cardhost acquires a virtual card as Windows does, and the driver reports it."""

    def cardhost(self, *arguments):
        program = pathlib.Path(settings.client).with_name("cardhost.exe")
        self.assertEqual(self.run_program(program, *arguments), 0, self.output + self.error)
        return self.output

    def test_reports_the_certificate_of_the_card(self):
        self.configure(f"http://127.0.0.1:{self.web.http}")
        self.cardhost("info", "--virtual", "5")
        (request,) = self.behind.requests
        body = json.loads(request.body)
        self.assertEqual(body["smartcard"], "NOT USED")
        self.cardhost("export", "--virtual", "5", "--container", "0", "-o", "certificate.pem")
        exported = ssl.PEM_cert_to_DER_cert((self.folder / "certificate.pem").read_text("ascii"))
        self.assertEqual(base64.b64decode(body["certificate"], validate=True), exported)
        self.assertEqual([other.body for other in self.behind.requests], [request.body] * 2)

    def test_acquires_the_card_as_well_when_no_service_can_be_reached(self):
        self.configure(f"http://127.0.0.1:{self.web.http}")
        paired = self.cardhost("info", "--virtual", "5")
        self.configure(f"http://127.0.0.1:{closed_port()}")
        self.assertEqual(self.cardhost("info", "--virtual", "5"), paired)
        self.assertEqual(len(self.behind.requests), 1)


class Registration(PairingTest):
    ENTERING = ("CardAcquireContext", "Entering RegisterCard")

    def test_sends_the_certificate_as_json(self):
        certificate = bytes(range(256)) * 8
        with LoopbackServer() as server:
            self.register(server.url(), certificate)
        (request,) = server.requests
        expected = b'{"smartcard" : "NOT USED", "certificate" : "%s"}'
        self.assertEqual(request.body, expected % base64.b64encode(certificate))
        self.assertEqual(self.filed(), [self.ENTERING])

    def test_stops_at_the_first_service_that_accepts(self):
        with LoopbackServer(reply(b"", "403 Forbidden")) as first, LoopbackServer() as second:
            self.register(f"{first.url()};{second.url()}")
        self.assertEqual(len(first.requests), 1)
        self.assertEqual(second.connections, 0)

    def test_goes_on_behind_a_service_that_cannot_be_reached(self):
        with LoopbackServer() as second:
            self.register(f" ;http://127.0.0.1:{closed_port()} ;; {second.url()};")
        self.assertEqual(len(second.requests), 1)
        self.assertEqual(self.filed(), [self.ENTERING])

    def test_reads_a_setting_longer_than_255_characters_whole(self):
        dead = f"http://127.0.0.1:{closed_port()};" * 20
        with LoopbackServer() as server:
            self.register(dead + server.url())
        self.assertEqual(len(server.requests), 1)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--client", required=True)
    parser.add_argument("--launcher", required=True)
    arguments, rest = parser.parse_known_args()
    settings.client = str(pathlib.Path(arguments.client).resolve())
    settings.launcher = shlex.split(arguments.launcher)
    settings.launcher[0] = str(pathlib.Path(settings.launcher[0]).resolve())
    os.environ["WINEPREFIX"] = str(REPOSITORY / "build/wine/pairing")
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
