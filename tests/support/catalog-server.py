#!/usr/bin/env python3
"""A small HTTP server for the bank shop's tests: serves FOLDER on 127.0.0.1 at a free port and
prints the port on its first line. Besides plain files it can misbehave on purpose:
  /redirect/NAME    302 to /NAME
  /truncated/NAME   announces NAME's full length, sends half of it and closes
  /stall/NAME       sends half of NAME and then nothing more until the client gives up
Anything missing is a 404.
Usage: catalog-server.py FOLDER
"""
import http.server
import os
import sys
import time


class Handler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def send_half(self, name, then):
        path = os.path.join(self.directory, name)
        if not os.path.isfile(path):
            self.send_error(404)
            return
        with open(path, "rb") as data:
            content = data.read()
        self.send_response(200)
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content[: len(content) // 2])
        self.wfile.flush()
        then()

    def do_GET(self):
        if self.path.startswith("/redirect/"):
            self.send_response(302)
            self.send_header("Location", "/" + self.path[len("/redirect/"):])
            self.end_headers()
        elif self.path.startswith("/truncated/"):
            self.send_half(self.path[len("/truncated/"):], lambda: None)
            self.close_connection = True
        elif self.path.startswith("/stall/"):
            self.send_half(self.path[len("/stall/"):], lambda: time.sleep(30))
        else:
            super().do_GET()


def main():
    folder = sys.argv[1]
    handler = lambda *args, **kwargs: Handler(*args, directory=folder, **kwargs)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    server.daemon_threads = True
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
