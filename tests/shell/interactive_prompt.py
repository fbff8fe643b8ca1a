#!/usr/bin/env python3
# labshell's prompt at a real terminal (a pty): completion, a failing
# command's message, the error log on stderr, Ctrl-C at the prompt and during
# a foreground monitor, the warning about unsaved changes, and the history
# kept across a restart. Every wait is for text on the terminal, with a
# deadline. Usage: interactive_prompt.py LABSHELL
import fcntl
import os
import pty
import re
import select
import shutil
import struct
import sys
import tempfile
import termios

DEADLINE_S = 120  # a guard only: every wait ends as soon as its text shows
ESCAPES = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]|\x1b[()=>][A-Za-z0-9]?|\r|\x07")


# One labshell on a pty, read as plain text with the escapes taken out.
class Session:
    def __init__(self, labshell, data):
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.environ.update(TERM="xterm", INPUTRC="/dev/null")
            # A cross-build runs behind its emulator.
            words = os.environ.get("LABSHELL_EMULATOR", "").split() + [labshell]
            os.execvp(words[0], words + ["--data", data, "--today", "20240815"])
        fcntl.ioctl(self.fd, termios.TIOCSWINSZ, struct.pack("HHHH", 40, 200, 0, 0))
        self.seen = ""  # everything read and not yet matched

    # Reads until `pattern` shows; drops what stands before its end.
    def expect(self, pattern):
        regex = re.compile(pattern)
        while True:
            found = regex.search(self.seen)
            if found:
                self.seen = self.seen[found.end():]
                return found
            ready, _, _ = select.select([self.fd], [], [], DEADLINE_S)
            chunk = os.read(self.fd, 4096) if ready else b""
            if not chunk:
                sys.exit(f"FAIL: no {pattern!r} on the terminal; it showed:\n{self.seen}")
            self.seen += ESCAPES.sub("", chunk.decode("utf-8", "replace"))

    def type(self, keys):
        os.write(self.fd, keys.encode())

    def run(self, line):
        self.expect("labshell> ")
        self.type(line + "\r")

    # The exit status, once labshell has ended.
    def status(self):
        try:
            while os.read(self.fd, 4096):
                pass
        except OSError:
            pass  # the pty is gone with its process
        _, status = os.waitpid(self.pid, 0)
        return os.WEXITSTATUS(status) if os.WIFEXITED(status) else -1


def check(condition, message):
    if not condition:
        sys.exit("FAIL: " + message)


def first_session(labshell, data):
    shell = Session(labshell, data)
    shell.expect(r"data folder .*" + re.escape(os.path.basename(data)) + r"\. help lists the commands")

    # Tab completes a command name, and a usage key whatever its case.
    shell.expect("labshell> ")
    shell.type("UsageL\t -a Control.Chip.ChipA.Count\r")
    shell.run("UsageLog -a Control.Chip.ChipB.Count")
    shell.expect("labshell> ")
    shell.type("UsageLog control.chip.chipa\t\r")
    shell.expect(r"\nControl\.Chip\.ChipA\.Count=1\n")

    # A failing command says what its number means; the error log's line
    # comes to the terminal too.
    shell.run("UsageLog Control.Chip.Nope")
    shell.expect(r"\*\* UsageLog: exit 4 - no such item")
    shell.run("external Ext.Lamp.Date D 0")
    shell.run("external -x Ext.Lamp.Date")
    shell.run("UsageLog Ext.Lamp.Date=20240101")
    shell.expect(r"\*\* External usage data key 'Ext\.Lamp\.Date' was not handled")
    shell.expect(r"\*\* UsageLog: exit 23 - nobody took the new value of an External item")

    # Ctrl-C at the prompt drops the typed line: "stat" must not stay in front.
    shell.expect("labshell> ")
    shell.type("stat\x03")
    shell.expect(r"\^C")
    shell.type("status InfoDateTimeValid\r")
    shell.expect(r"\nInfoDateTimeValid=true\n")

    # Ctrl-C during a foreground monitor stops it as kill does and the
    # shell goes on with its pending changes.
    shell.run("UsageLog -d1 Control.*")
    shell.expect(r"Control\.Chip\.ChipB\.Count=1\n")
    shell.type("\x03")
    shell.expect(r"\*\* UsageLog: exit 3 - stopped")
    shell.run("UsageLog -p Control.*")
    shell.expect(r"Control\.Chip\.ChipA\.Count=1\nControl\.Chip\.ChipB\.Count=1\n")

    # exit with unsaved changes warns once; the second exit leaves.
    shell.run("exit")
    shell.expect(r"labshell: 3 usage change\(s\) not saved: UsageLog -b saves them")
    shell.run("exit")
    shell.expect(r"usage changes left unsaved: 3")
    check(shell.status() == 0, "labshell did not leave with status 0 after the second exit")


def second_session(labshell, data):
    shell = Session(labshell, data)
    # Up twice: past "exit" to the line before it in the first session.
    shell.expect("labshell> ")
    shell.type("\x1b[A")
    shell.expect("exit")
    shell.type("\x1b[A")
    shell.expect(r"UsageLog -p Control\.\*")
    shell.type("\x03")
    # Ctrl-D at a prompt with nothing unsaved leaves at once.
    shell.expect("labshell> ")
    shell.type("\x04")
    check(shell.status() == 0, "labshell did not leave on Ctrl-D")


def main():
    labshell = os.path.abspath(sys.argv[1])
    work = tempfile.mkdtemp(prefix="labshell_prompt_")
    try:
        data = os.path.join(work, "data")
        first_session(labshell, data)
        with open(os.path.join(data, "history"), encoding="utf-8") as history:
            lines = [line.strip() for line in history]
        check("UsageLog -a Control.Chip.ChipA.Count" in lines, f"completed line not in the history: {lines}")
        check("UsageLog Control.Chip.ChipA.Count" in lines, f"completed key not in the history: {lines}")
        second_session(labshell, data)
    finally:
        shutil.rmtree(work)
    print("PASS")


main()
