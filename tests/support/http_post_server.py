"""A small HTTP server for the tests: answers every POST with its path and body, Content-Length
framed, as ordinary servers do. Usage: http_post_server.py PORT"""
import http.server
import sys


class PostEcho(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0"))
        body = self.rfile.read(length)
        reply = b"path=" + self.path.encode() + b"&body=" + body
        self.send_response(200)
        self.send_header("Content-Type", "text/plain")
        self.send_header("Content-Length", str(len(reply)))
        self.end_headers()
        self.wfile.write(reply)

    def log_message(self, *arguments):
        pass


http.server.HTTPServer(("127.0.0.1", int(sys.argv[1])), PostEcho).serve_forever()
