"""A mail server on loopback for one demonstration, with STARTTLS and AUTH.

usage: mail-server.py FOLDER

Writes its port and a password for user "vornex" into the files "port" and "password" of the
folder, and each message, with the envelope in front, into "message". Ends with its standard input.
"""

import asyncio
import logging
import pathlib
import secrets
import ssl
import subprocess
import sys
import warnings

from aiosmtpd.smtp import SMTP, AuthResult

# The library's own, about versions to come.
warnings.simplefilter("ignore")
logging.getLogger("mail.log").setLevel(logging.ERROR)


class Keep:
    def __init__(self, folder):
        self.folder = folder

    async def handle_DATA(self, server, session, envelope):
        lines = [
            f"Envelope from: {envelope.mail_from}",
            *(f"Envelope to:   {recipient}" for recipient in envelope.rcpt_tos),
            f"Encrypted:     {'yes' if session.ssl else 'no'}",
            f"Logged in:     {'yes' if session.authenticated else 'no'}",
            "",
            "",
        ]
        message = "\r\n".join(lines).encode() + envelope.original_content
        self.folder.joinpath("message").write_bytes(message)
        return "250 taken"


def certificate(folder):
    """A key of its own that nobody has to trust: clients here do not verify."""
    key, cert = folder / "key.pem", folder / "cert.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
         "-nodes", "-days", "1", "-subj", "/CN=localhost", "-keyout", key, "-out", cert],
        check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    return context


async def serve(folder):
    password = secrets.token_hex(16).encode()

    def check(server, session, envelope, mechanism, login):
        return AuthResult(success=(login.login, login.password) == (b"vornex", password))

    context = certificate(folder)
    loop = asyncio.get_running_loop()
    server = await loop.create_server(
        lambda: SMTP(Keep(folder), hostname="localhost", tls_context=context, authenticator=check,
                     auth_require_tls=True),
        "127.0.0.1", 0)
    folder.joinpath("password").write_bytes(password + b"\n")
    ready = folder / "port.new"
    ready.write_text(str(server.sockets[0].getsockname()[1]))
    ready.rename(folder / "port")
    await loop.run_in_executor(None, sys.stdin.buffer.read)
    server.close()


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    asyncio.run(serve(pathlib.Path(sys.argv[1])))
