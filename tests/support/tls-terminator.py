"""Speaks TLS in the place of a server that cannot; see TlsTerminator.h.

tls-terminator.py CERTIFICATE KEY PORT

Connects to PORT on this machine and says on which port it takes TLS. From there it passes on to
PORT, decrypted, what each client says, until that first connection ends.
"""

import select
import socket
import ssl
import sys
import threading


def pass_on(client, server):
    """In both directions, until one of them has no more to say."""
    while True:
        ready = [client] if client.pending() else select.select([client, server], [], [])[0]
        for source in ready:
            data = source.recv(65536)
            if not data:
                return
            (server if source is client else client).sendall(data)


def say_goodbye(client):
    client.setblocking(False)
    try:
        client.unwrap()
    except ssl.SSLWantReadError:
        pass  # the client's own goodbye is not waited for
    client.shutdown(socket.SHUT_WR)
    # Closed with something unread in it, the connection would be reset, and what the client has not
    # read by then be lost.
    client.settimeout(10)
    while client.recv(65536):
        pass


def serve(connection, context, port):
    try:
        with context.wrap_socket(connection, server_side=True) as client:
            with socket.create_connection(("127.0.0.1", port)) as server:
                pass_on(client, server)
            say_goodbye(client)
    except OSError:
        pass  # the client has broken off


def accept(listener, context, port):
    while True:
        connection, _ = listener.accept()
        threading.Thread(target=serve, args=(connection, context, port), daemon=True).start()


def main(certificate, key, port):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    control = socket.create_connection(("127.0.0.1", port))
    listener = socket.create_server(("127.0.0.1", 0))
    threading.Thread(target=accept, args=(listener, context, port), daemon=True).start()
    control.sendall(b"%d\n" % listener.getsockname()[1])
    try:
        control.recv(1)
    except OSError:
        pass


main(sys.argv[1], sys.argv[2], int(sys.argv[3]))
