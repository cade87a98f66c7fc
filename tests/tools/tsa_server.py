#!/usr/bin/env python3
"""A real RFC 3161 time-stamp authority for the tests, on 127.0.0.1 only.

It makes a throw-away CA and a TSA certificate in the given directory with the openssl
command line, then answers POSTed time-stamp queries with `openssl ts -reply`. The port
it listens on is written to DIRECTORY/port once it is ready. It stops by itself after
--lifetime seconds (or earlier when killed).
"""
import argparse
import http.server
import os
import subprocess
import tempfile
import threading

TSA_CONFIG = """
[ tsa ]
default_tsa = tsa_config
[ tsa_config ]
dir = {dir}
serial = $dir/tsaserial
signer_cert = $dir/tsa.pem
certs = $dir/ca.pem
signer_key = $dir/tsa.key
signer_digest = sha256
default_policy = 1.2.3.4.1
digests = sha1, sha256, sha384, sha512
accuracy = secs:1
ordering = no
tsa_name = no
ess_cert_id_chain = no
ess_cert_id_alg = sha256
"""

EXT = """
[ tsa_ext ]
basicConstraints = CA:FALSE
keyUsage = critical, digitalSignature, nonRepudiation
extendedKeyUsage = critical, timeStamping
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
"""


def run(*args):
    subprocess.run(args, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def make_authority(d):
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{d}/ca.key",
        "-out", f"{d}/ca.pem", "-days", "30", "-subj", "/CN=xmldsig test TSA root")
    run("openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{d}/tsa.key",
        "-out", f"{d}/tsa.csr", "-subj", "/CN=xmldsig test TSA")
    with open(f"{d}/ext.cnf", "w") as f:
        f.write(EXT)
    run("openssl", "x509", "-req", "-in", f"{d}/tsa.csr", "-CA", f"{d}/ca.pem", "-CAkey", f"{d}/ca.key",
        "-CAcreateserial", "-out", f"{d}/tsa.pem", "-days", "30", "-extfile", f"{d}/ext.cnf",
        "-extensions", "tsa_ext")
    with open(f"{d}/tsaserial", "w") as f:
        f.write("01\n")
    with open(f"{d}/tsa.cnf", "w") as f:
        f.write(TSA_CONFIG.format(dir=d))


class Handler(http.server.BaseHTTPRequestHandler):
    directory = None
    lock = threading.Lock()

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0"))
        query = self.rfile.read(length)
        with self.lock, tempfile.TemporaryDirectory() as t:
            qf, rf = os.path.join(t, "q.tsq"), os.path.join(t, "r.tsr")
            with open(qf, "wb") as f:
                f.write(query)
            res = subprocess.run(["openssl", "ts", "-reply", "-config", f"{self.directory}/tsa.cnf",
                                  "-queryfile", qf, "-out", rf], stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL)
            if res.returncode != 0 or not os.path.exists(rf):
                self.send_response(400)
                self.end_headers()
                return
            with open(rf, "rb") as f:
                body = f.read()
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *args):
        pass


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("directory")
    ap.add_argument("--lifetime", type=int, default=600)
    args = ap.parse_args()
    make_authority(args.directory)
    Handler.directory = args.directory
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    with open(os.path.join(args.directory, "port.tmp"), "w") as f:
        f.write(str(server.server_address[1]))
    os.replace(os.path.join(args.directory, "port.tmp"), os.path.join(args.directory, "port"))
    threading.Event().wait(args.lifetime)
    server.shutdown()


if __name__ == "__main__":
    main()
