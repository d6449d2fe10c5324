"""A place of the machine that nobody else sees, for a PC/SC daemon that disturbs no other one.

The daemon's socket (/run/pcscd) and the driver's TCP ports are fixed, so the place has a mount table
and a network of its own. It has process numbers of its own too: when its first process ends, however
that happens, the system ends all the others in it.
"""
import fcntl
import os
import pathlib
import socket
import struct
import subprocess
import sys

NAMESPACES = ["--mount", "--net", "--pid", "--fork", "--kill-child"]
INSIDE = "--inside-private-place"


def can_make():
    return bool(_command())


def enter():
    """Runs this script again, with the same arguments, in a private place; does not return."""
    command = _command()
    os.execvp(command[0], [*command, sys.executable, *sys.argv, INSIDE])


def furnish():
    """Makes an empty /run/pcscd and switches the loopback interface on, which is down at first."""
    # The whole of /run: a user who is root in here only could not make a folder in the machine's.
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/run"], check=True)
    pathlib.Path("/run/pcscd").mkdir()
    get_flags, set_flags, up = 0x8913, 0x8914, 1
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        request = struct.pack("16sh", b"lo", 0) + bytes(22)
        flags = struct.unpack_from("h", fcntl.ioctl(any_socket, get_flags, request), 16)[0]
        fcntl.ioctl(any_socket, set_flags, struct.pack("16sh", b"lo", flags | up) + bytes(22))


def _command():
    """What starts a program in a private place; nothing where the machine allows none."""
    ways = [["unshare", *NAMESPACES]]
    if os.geteuid() != 0:
        ways = [["unshare", "--user", "--map-root-user", *NAMESPACES]]
    trial = ["sh", "-c", "mount -t tmpfs tmpfs /run"]
    for way in ways:
        try:
            if subprocess.run([*way, *trial], capture_output=True, check=False).returncode == 0:
                return way
        except FileNotFoundError:
            pass
    return []
