"""Senders for the checks of live sources. All on the loopback range, bounded, and gone with the check."""
import base64
import http.server
import os
import signal
import socket
import ssl
import subprocess
import threading
import time

TOOLS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SENDER = os.path.join(TOOLS, "live-sender.py")


def free_port(kind=socket.SOCK_STREAM):
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Sender:
    """A sender that ends with the check, whatever happens."""

    def __init__(self, *arguments, ready=True, text=True):
        self.process = subprocess.Popen(list(arguments), stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=text)
        if ready and self.process.stdout.readline().strip() != "ready":
            raise RuntimeError("the sender did not start: " + " ".join(arguments))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()

    def end(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGCONT)  # a stopped one must go on to end
            self.process.kill()
        self.process.wait(timeout=5)
        self.process.stdout.close()

    def signal(self, number):
        self.process.send_signal(number)


def own_sender(kind, port, seconds, *more):
    return Sender(SENDER, kind, str(port), str(seconds), *more)


def test_picture(seconds, codec, *more, size="640x360"):
    """A command of ffmpeg that sends a moving test picture at its own rate; where to comes behind it."""
    encode = ["libx264", "-tune", "zerolatency", "-g", "25"] if codec == "h264" else [codec, "-q:v", "5"]
    return ["ffmpeg", "-nostdin", "-loglevel", "quiet", "-re", "-f", "lavfi", "-i", f"testsrc2=size={size}:rate=25",
            "-t", str(seconds), "-c:v", *encode, *more]


def wait_until_listening(port, limit=10.0):
    """Looks into the system's table: connecting would take a listener's only place."""
    wanted = f"0100007F:{port:04X}"
    end = time.time() + limit
    while time.time() < end:
        with open("/proc/net/tcp", encoding="ascii") as table:
            if any(line.split()[1] == wanted and line.split()[3] == "0A" for line in table.readlines()[1:]):
                return
        time.sleep(0.05)
    raise RuntimeError(f"nobody listens on port {port}")


def certificate(room):
    """A certificate of this check's own and its key."""
    cert, key = os.path.join(room, "cert.pem"), os.path.join(room, "key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1",
                    "-keyout", key, "-out", cert], check=True, capture_output=True)
    return cert, key


class HttpCamera:
    """A camera that sends over HTTP: /cam has the stream of `command` (a process that writes it to its standard
    output), everything else is not there. With `user` ("name:password") asks for it; with `tls` (certificate, key) over
    TLS."""

    def __init__(self, command, kind, user=None, tls=None):
        self.children = []
        camera = self

        class Answer(http.server.BaseHTTPRequestHandler):
            def log_message(self, *_):
                pass

            def do_GET(self):
                wanted = "Basic " + base64.b64encode(user.encode()).decode() if user else None
                if wanted and self.headers.get("Authorization") != wanted:
                    self.send_response(401)
                    self.send_header("WWW-Authenticate", 'Basic realm="camera"')
                    self.end_headers()
                elif self.path != "/cam":
                    self.send_error(404)
                else:
                    self.send_response(200)
                    self.send_header("Content-Type", kind)
                    self.end_headers()
                    camera.stream(self.wfile)

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Answer)
        self.server.daemon_threads = True
        self.command = command
        if tls:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(*tls)
            self.server.socket = context.wrap_socket(self.server.socket, server_side=True)
        self.port = self.server.server_address[1]
        self.thread = threading.Thread(target=self.server.serve_forever)

    def stream(self, out):
        child = subprocess.Popen(self.command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.children.append(child)
        try:
            while True:
                data = child.stdout.read1(65536)
                if not data:
                    break
                out.write(data)
        except OSError:
            pass  # who watched has gone
        finally:
            child.kill()
            child.wait()
            child.stdout.close()

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        for child in self.children:
            child.kill()
        self.server.server_close()
        self.thread.join(timeout=5)


class MuteServer:
    """Takes connections and says nothing."""

    def __enter__(self):
        self.listener = socket.socket()
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(16)
        self.port = self.listener.getsockname()[1]
        return self

    def __exit__(self, *_):
        self.listener.close()
