"""A server on loopback that answers each request with bytes of the test's choice."""
import socket
import threading
import time


class Request:
    """A request as it came: its first line, its header fields and its body."""

    def __init__(self, head, body):
        lines = head.split(b"\r\n")
        self.line = lines[0].decode("ascii")
        self.fields = [tuple(part.strip() for part in line.split(b":", 1)) for line in lines[1:]]
        self.body = body

    def values(self, name):
        return [value for field, value in self.fields if field.lower() == name.lower().encode()]


def read_request(connection):
    data = b""
    while b"\r\n\r\n" not in data:
        more = connection.recv(65536)
        if not more or more.startswith(b"\x16"):
            return None  # No HTTP: TLS, say, where there is none.
        data += more
    head, body = data.split(b"\r\n\r\n", 1)
    request = Request(head, body)
    length = int((request.values("Content-Length") or [b"0"])[0])
    while len(request.body) < length:
        more = connection.recv(65536)
        if not more:
            break
        request.body += more
    return request


def reply(body, status="200 OK"):
    head = f"HTTP/1.1 {status}\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n"
    return head.encode() + body


def chunk(data):
    return b"%x\r\n%s\r\n" % (len(data), data)


CHUNKED = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n"
LAST_CHUNK = b"0\r\n\r\n"


class LoopbackServer:
    """answer is given a connection's socket after its request was read, and sends what it likes;
    bytes are sent as they are."""

    def __init__(self, answer=reply(b""), wrap=None):
        self.answer = answer
        self.wrap = wrap or (lambda connection: connection)
        self.requests = []
        self.connections = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.listener.close()

    def url(self, scheme="http"):
        return f"{scheme}://127.0.0.1:{self.port}"

    def _accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            self.connections += 1
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        try:
            with self.wrap(connection) as wrapped:
                request = read_request(wrapped)
                if request is None:
                    return
                self.requests.append(request)
                if callable(self.answer):
                    self.answer(wrapped)
                else:
                    wrapped.sendall(self.answer)
                    # Let the client close first, so that no unread byte of it resets the reply.
                    wrapped.settimeout(5)
                    wrapped.recv(1)
        except OSError:
            pass  # The client has gone, which is its right.


def drip(piece, pause):
    """An answer without end: a chunk of these bytes, a pause, and so on."""

    def answer(connection):
        connection.sendall(CHUNKED)
        while True:
            connection.sendall(chunk(piece))
            time.sleep(pause)

    return answer
