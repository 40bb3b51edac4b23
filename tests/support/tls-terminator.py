"""Speaks TLS in the place of servers that cannot; see TlsTerminator.h.

tls-terminator.py PORT

Connects to PORT on this machine, says on which port it takes clients, and lives until that
connection ends. Whoever leads a client to it says three lines in front: the file of the
certificate, the file of the key, and the port of this machine to which it passes on, decrypted,
what the client says.
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


def read_line(connection):
    # By the byte: what follows the lines is for TLS.
    line = b""
    while not line.endswith(b"\n"):
        byte = connection.recv(1)
        if not byte:
            raise ConnectionError("the order is not complete")
        line += byte
    return line[:-1].decode()


def serve(connection):
    try:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certfile=read_line(connection), keyfile=read_line(connection))
        port = int(read_line(connection))
        with context.wrap_socket(connection, server_side=True) as client:
            with socket.create_connection(("127.0.0.1", port)) as server:
                pass_on(client, server)
            say_goodbye(client)
    except OSError:
        connection.close()  # the client has broken off


def accept(listener):
    while True:
        connection, _ = listener.accept()
        threading.Thread(target=serve, args=(connection,), daemon=True).start()


def main(port):
    control = socket.create_connection(("127.0.0.1", port))
    listener = socket.create_server(("127.0.0.1", 0))
    threading.Thread(target=accept, args=(listener,), daemon=True).start()
    control.sendall(b"%d\n" % listener.getsockname()[1])
    try:
        control.recv(1)
    except OSError:
        pass


main(int(sys.argv[1]))
