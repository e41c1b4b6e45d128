#!/usr/bin/env python3
"""Runs two morp binaries with the same random keys: compare.py OLD NEW [SEQUENCES [SEED]]

Every byte on the terminal, to the program and in the history file has to be the same, in all styles.
Keys are fed in bursts, each only when morp and the program sleep and the terminal is drained, so that
timing matters little; a difference counts when none of some tries gives the same. Ends with status 1 at the first difference, which it shows.
"""
import fcntl
import os
import pty
import random
import select
import struct
import sys
import tempfile
import termios
import time

TRIES = 8
# The program: a prompt, a line, an answer; every byte that it reads is logged.
PROGRAM = r"""
import os, sys
log = open(os.environ["COMPARE_LOG"], "wb", 0)
prompts = ["> ", "$ ", "a_longer prompt: ", "", "\033[1mbold\033[m ", "p" * 70 + " "]
for turn in range(1000):
    os.write(1, prompts[(turn + int(os.environ["COMPARE_PROMPT"])) % len(prompts)].encode())
    line = os.read(0, 4096)
    log.write(b"[" + line + b"]")
    if not line or b"quit" in line:
        break
    os.write(1, b"=" + bytes(b for b in line if 32 <= b < 127)[:40] + (b"\n" if turn % 5 else b"\r"))
"""
KEYS = {
    "emacs": [b"\x01", b"\x02", b"\x05", b"\x06", b"\x0b", b"\x0c", b"\x0e", b"\x10", b"\x12",
              b"\x14", b"\x15", b"\x16", b"\x17", b"\x18\x18", b"\x19", b"\x1b", b"\x1bf", b"\x1bb",
              b"\x1bd", b"\x1bh", b"\x1bc", b"\x1bl", b"\x1b<", b"\x1b>", b"\x1b ", b"\x1bp", b"\x1d",
              b"\x1b[A", b"\x1b[B", b"\x1b[C", b"\x1b[D", b"\x1b3", b"\\", b"\x00", b"\x0f", b"\x7f"],
    "vi": [b"\x1b"] * 6 + [bytes([b]) for b in b"hjklwbeWBE0^$xXsSdDcCyYpPaAiIrR~fFtT;,/?nNGuU.#_123"]
          + [b"\x1b[A", b"\x1b[D", b"\x1b[C", b"\x16", b"\x17", b"\x0c", b"\x08", b"\x7f", b"\x15", b"\\"],
}
KEYS["gmacs"] = KEYS["emacs"]
TEXT = [bytes([b]) for b in b"abc xyz_-.,  \t\x01\x7f"] + [b"\xc3\xa9", b"\xff", b"word ", b"longer_words "]


def keys_of(rng, style):
    """Bursts, each of which may hold several keys."""
    bursts = []
    for _ in range(rng.randint(5, 25)):
        pool = rng.choice([TEXT, TEXT, KEYS[style]])
        burst = b"".join(rng.choice(pool) for _ in range(rng.choice([1, 1, 1, 3, 12, 40])))
        bursts.append(burst + (b"\r" if rng.random() < 0.25 else b""))
    return bursts


def sleeping(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as stat:
            return stat.read().rpartition(")")[2].split()[0] in "SZ"
    except OSError:
        return True


def children(pid):
    try:
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            return [int(word) for word in file.read().split()]
    except OSError:
        return []


def settle(pid, master, screen):
    """Takes output until everybody has slept through several looks. False at the end of the run."""
    quiet = 0
    while quiet < 4:
        if select.select([master], [], [], 0.0007)[0]:
            try:
                data = os.read(master, 65536)
            except OSError:
                return False
            if not data:
                return False
            screen.append(data)
            quiet = 0
        elif all(sleeping(p) for p in [pid] + children(pid)):
            quiet += 1
        else:
            quiet = 0
    return True


def run(binary, style, columns, prompt, bursts, folder):
    """What one run leaves: the terminal's bytes, the program's, the history file's."""
    log, history = os.path.join(folder, "log"), os.path.join(folder, "history")
    for name in (log, history):
        if os.path.exists(name):
            os.remove(name)
    pid, master = pty.fork()
    if pid == 0:
        fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        environment = {"PATH": os.environ["PATH"], "HOME": folder, "Q_VXEDITOR": style,
                       "COLUMNS": str(columns), "Q_VXHISTFILE": history, "COMPARE_LOG": log,
                       "COMPARE_PROMPT": str(prompt), "TERM": "dumb"}
        os.execve(binary, [binary, sys.executable, os.path.join(folder, "program.py")], environment)
    screen = []
    # The interpreter is up when its first prompt is there, or the log.
    deadline = time.monotonic() + 20
    while not os.path.exists(log) and time.monotonic() < deadline:
        time.sleep(0.002)
    alive = settle(pid, master, screen)
    for burst in bursts:
        if not alive:
            break
        os.write(master, burst)
        alive = settle(pid, master, screen)
    if alive:
        settle(pid, master, screen)
    os.close(master)  # a hang-up ends it
    os.waitpid(pid, 0)
    read = [open(name, "rb").read() if os.path.exists(name) else b"" for name in (log, history)]
    return [b"".join(screen)] + read


def report(style, columns, prompt, number, bursts, results):
    print(f"{style}, {columns} columns, prompt {prompt}, sequence {number}: {bursts}")
    for name, a, b in zip(("terminal", "program", "history"), *results):
        if a != b:
            at = len(os.path.commonprefix([a, b]))
            print(f"{name}, byte {at}:", *(x[max(at - 40, 0):at + 60] for x in (a, b)), sep="\n")


def main():
    old, new = (os.path.abspath(name) for name in sys.argv[1:3])
    count = int(sys.argv[3]) if len(sys.argv) > 3 else 2000
    seed = int(sys.argv[4]) if len(sys.argv) > 4 else 1
    with tempfile.TemporaryDirectory() as folder:
        with open(os.path.join(folder, "program.py"), "w", encoding="ascii") as file:
            file.write(PROGRAM)
        for n in range(seed, seed + count):
            for style in ("emacs", "gmacs", "vi"):
                rng = random.Random(f"{style} {n}")
                columns, prompt = rng.choice([25, 40, 80, 132, 200]), rng.randrange(6)
                bursts = keys_of(rng, style)
                # Where keys meet a change of mode even the same binary may do one or the other.
                seen = [set(), set()]
                for _ in range(TRIES):
                    results = [run(b, style, columns, prompt, bursts, folder) for b in (old, new)]
                    for outcomes, result in zip(seen, results):
                        outcomes.add(tuple(result))
                    if seen[0] & seen[1]:
                        break
                else:
                    report(style, columns, prompt, n, bursts, results)
                    return 1
    print(f"{count} sequences a style: the same")
    return 0


sys.exit(main())
