"""What a table of wyvern-check promises that the launcher does, and whether a run of the launcher kept it."""

import re

FAILED = b"Run ConfigFile(%s) failed\n"
COPIES = {b"working copy": b"/mnt/mtd/code/config_file/protocolconfig.xml",
          b"factory copy": b"/mnt/mtd/code/factory_setting/protocolconfig.xml"}
START = b"start"
ABORTED = -6  # what a process that ended by signal 6 returns
WAITING = "waiting"  # instead of a status: it did not end
ROOM = 63     # bytes of a command that the launcher has room for
UNKNOWN = (b"not-looked-at", b"unreadable")


class Happening:
    """What one step leaves behind: on standard output, in the shell's record, and on standard error."""

    def __init__(self, out=b"", command=None, error=b""):
        self.out = out
        self.commands = [] if command is None else [command]
        self.error = error

    def __str__(self):
        return " ".join(str(each) for each in [*self.commands, self.out, self.error] if each)


def unescaped(text):
    return re.sub(rb"\\(\\|x[0-9A-F]{2})", lambda code: b"\\" if code[1] == b"\\" else bytes.fromhex(code[1][1:].decode()),
                  text)


def command_for(mode, name):
    """The launcher's rule for a start program, in words of its own: the plan lists names where a choice is open."""
    if mode == START:
        return b"/factory_setting/" + name
    return b"killall -15 " + name.split(b"_")[0] + b"_Server"


def ran(mode, command):
    return Happening(b"%s LoadServcie(%s) \n" % (b"Run" if mode == START else b"Stop", command), command)


def refused(protocol, name):
    return Happening(error=b'Wyvern: protocol "%s": the command for the file "%s" is longer than 63 characters and is '
                           b"not run\n" % (protocol, name))


def done_with(mode, protocol, name):
    command = command_for(mode, name)
    return ran(mode, command) if len(command) <= ROOM else refused(protocol, name)


class Promise:
    """The steps of a plan in order, each a list of happenings of which one has to come about, and the status."""

    def __init__(self, table):
        rows = [[unescaped(column) for column in row.split(b"\t")] for row in table.splitlines()]
        self.rows = [row for row in rows if row[0] in (b"file", b"plan", b"candidate", b"fallback", b"services")]
        self.states = {row[1]: row[3].decode() for row in rows if row[0] == b"file"}
        self.in_force = None
        self.status = 0
        self.steps = []
        self.tags = set()
        self.has_open_choice = False
        self.is_unknown = False
        # Its user may not list them, and the launcher on a device is another.
        self.is_unlisted = any(row[:1] + row[2:3] == [b"services", b"unreadable"] for row in rows)
        if self.is_unlisted:
            self.tags.add("start programs not known")
        for row in (row for row in rows if row[0] == b"file"):
            if row[4] == b"yes":
                self.in_force = row[1].decode()
                break
            if row[3] in UNKNOWN:
                self.is_unknown = True
                break
            if row[3] == b"waits":
                self.status = WAITING
                break
            if row[3] == b"too-many-entries":
                self.status = ABORTED
                break
            self.steps.append([Happening(FAILED % COPIES[row[1]])])
        candidates = [row for row in rows if row[0] == b"candidate"]
        for row in (row for row in rows if row[0] == b"plan"):
            self.steps.append(self.step(row, [each for each in candidates if each[1] == row[2]]))

    def step(self, row, candidates):
        _, mode, _, protocol, action, reason, file, command, open_flag = row
        others = [each[4] for each in candidates if each[3] == b"or"]
        is_open = open_flag == b"yes"
        for each in candidates:
            self.tags.add(f"passed over: {each[5].decode()}")
        if is_open:
            self.has_open_choice = True
            self.tags.add("open choice")
        if action == b"run":
            first = ran(mode, command)
            if not file:
                self.tags.add("nothing matches")
            if file and len(command) > ROOM - 2:
                self.tags.add("command of 62 or 63 bytes")
            if any(byte > 127 for byte in command):
                self.tags.add("command outside ASCII")
            if re.search(rb"[ ;&$`'\"*\\\n\t<>|()]", file):
                self.tags.add("command with a character for the shell")
        elif reason == b"disabled":
            self.tags.add("disabled")
            first = Happening(b"Protocol(%s) disable\n" % protocol)
        else:
            self.tags.add("too long")
            if len(command_for(mode, file)) == ROOM + 1:
                self.tags.add("too long by one byte")
            first = refused(protocol, file)
        return [first] + [done_with(mode, protocol, name) for name in others]


class Run:
    """What one run of the launcher left behind."""

    def __init__(self, status, out, error, record):
        self.status = status
        self.out = out
        self.error = error
        self.commands = record.split(b"\0")[:-1]

    def __str__(self):
        return (f"status {self.status}\ncommands:\n" + "".join(f"  {each}\n" for each in self.commands) +
                f"standard output:\n  {self.out}\nstandard error:\n  {self.error}\n")


def broken_promise(promise, run, may_be_open):
    """What the run did otherwise, in words; nothing when it kept the promise, or when nothing was promised."""
    if promise.is_unknown:
        is_planned = any(row[0] == b"plan" or (row[0] == b"file" and row[4] == b"yes") for row in promise.rows)
        return "there is a plan although the configuration in force is not known" if is_planned else None
    if promise.is_unlisted:
        is_planned = any(row[0] == b"plan" for row in promise.rows)
        return "there is a plan although the start programs are not known" if is_planned else None
    if promise.has_open_choice and not may_be_open:
        return "a choice is called open where the order of the directory is the device's"
    if run.status != promise.status:
        return f"the launcher ended with {run.status}, not {promise.status}"
    # Where each choice so far may have led: places on standard output, in the record, and on standard error.
    places = {(0, 0, 0)}
    for number, step in enumerate(promise.steps, 1):
        after = set()
        for out, commands, error in places:
            for each in step:
                end = commands + len(each.commands)
                if (run.out.startswith(each.out, out) and run.commands[commands:end] == each.commands and
                        run.error.startswith(each.error, error)):
                    after.add((out + len(each.out), end, error + len(each.error)))
        if not after:
            return f"step {number} did not come about: " + " or ".join(str(each) for each in step)
        places = after
    for out, commands, error in places:
        told = run.error[error:]
        is_end = told.startswith(b"terminate called ") if promise.status == ABORTED else not told
        if out == len(run.out) and commands == len(run.commands) and is_end:
            return None
    return "the launcher did more than was planned"
