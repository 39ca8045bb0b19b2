"""Random device trees: the two configurations and the directory of the start programs, whole, damaged, or missing."""

import codecs
import os
import random

WORKING = "mnt/mtd/code/config_file/protocolconfig.xml"
FACTORY = "mnt/mtd/code/factory_setting/protocolconfig.xml"
SERVICES = "factory_setting"

# Entries that the launcher has room for, and how deep it lets elements nest.
MOST_ENTRIES = 20095
DEEPEST = 5000
# Bytes of a configuration that wyvern-check looks at.
LOOKED_AT = 16 << 20

# Few and alike, so that names collide, contain one another, and differ in nothing but letter case.
NAMES = ["A", "a", "AB", "BA", "B", "Mod", "Modbus", "modbus", "MODBUS", "ModbusTCP", "网关", "关", "水泵", "网", "é", "",
         "网关A", "电表", "网关2",
         "A B", " ", "A;B", "A&B", "$A", "`A`", "'", "\"", "*", "A_B", "_", "A/B", "..", "loadservice", "service", "\\",
         "%s%n", "<A>", "A\tB", "IEC104", "IEC_104", "\x7f", "\x85", "x" * 40, "测" * 15]
LEFTOVERS = ["~", ".bak", ".orig", ".swp", ".dpkg-old", ".dpkg-dist", "-opkg", ".1", " (copy)", ".tar.gz"]
MODES = [0o755] * 6 + [0o644, 0o000, 0o777, 0o775, 0o4755, 0o111, 0o700, 0o400]


class Node:
    """One entry of a tree; `path` is relative to the device's root, as bytes."""

    def __init__(self, path, kind, data=b"", mode=None):
        self.path = path if isinstance(path, bytes) else path.encode()
        self.kind = kind  # file, directory, link or fifo
        self.data = data if isinstance(data, bytes) else data.encode()  # of a file; the target of a link
        self.mode = mode

    def make(self, root):
        path = os.path.join(os.fsencode(root), self.path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        if self.kind == "directory":
            os.makedirs(path, exist_ok=True)
        elif self.kind == "link":
            os.symlink(self.data, path)
        elif self.kind == "fifo":
            os.mkfifo(path)
        else:
            with open(path, "wb") as file:
                file.write(self.data)

    def __str__(self):
        mode = "" if self.mode is None else f" mode {self.mode:04o}"
        target = f" -> {self.data!r}" if self.kind == "link" else f" {len(self.data)} bytes" if self.data else ""
        return f"{self.kind} {self.path!r}{mode}{target}"


class Tree:
    """The tree with a number, the same for the same seed; `tags` says what it holds on purpose."""

    def __init__(self, seed, number):
        self.random = random.Random(f"{seed} {number}")
        self.number = number
        self.tags = set()
        self.nodes = []
        self.names = self.some(NAMES, self.random.randint(1, 5))
        self.as_other_user = self.chance(0.15)
        self.on_disk = self.chance(0.25)
        self.copy("working", WORKING, 0.6)
        self.copy("factory", FACTORY, 0.65)
        # Not for those: one takes as long as twenty others.
        self.has_copy = self.chance(0.3) and not self.tags & {"nested around the limit", "entries around the limit",
                                                              "larger than is looked at"}
        self.services()

    def make(self, root, order=None):
        """Lays the tree out; `order` shuffles it, so that a directory may yield its names in another order."""
        nodes = list(self.nodes)
        if order is not None:
            order.shuffle(nodes)
        for node in nodes:
            node.make(root)
        # What is in a directory is there before the directory is closed.
        for node in sorted(nodes, key=lambda node: -node.path.count(b"/")):
            if node.mode is not None:
                os.chmod(os.path.join(os.fsencode(root), node.path), node.mode)

    def add(self, *arguments):
        self.nodes.append(Node(*arguments))

    def chance(self, share):
        return self.random.random() < share

    def one(self, choices):
        return self.random.choice(choices)

    def some(self, choices, count):
        return [self.one(choices) for _ in range(count)]

    # The configurations.

    def copy(self, role, path, share_of_good):
        kind = "good"
        if not self.chance(share_of_good):
            kind = self.one(["absent", "absent", "empty", "directory", "cut", "cut", "broken", "broken", "wrong root",
                             "nameless root", "no root", "no section", "search ended", "no entry", "dangling link",
                             "loop", "no directory", "file for directory", "unreadable", "closed directory"])
        # From here on a sound text, but not in its place, or not for everyone.
        elif self.as_other_user and self.chance(0.2):
            kind = self.one(["unreadable", "closed directory"])
        elif self.chance(0.12):
            kind = self.one(["link", "absolute link", "linked directory"])
        rare = self.random.random()
        if 0.51 < rare < 0.522:
            self.tags.add("a FIFO for a configuration")
            kind = "fifo"
        text = self.configuration(kind, rare)
        if 0.5 < rare < 0.504:
            self.tags.add("larger than is looked at")
            text += b"<!--" + b" " * LOOKED_AT + b"-->"
        directory = os.path.dirname(path)
        if kind in ("absent", "no directory", "file for directory", "linked directory", "loop", "dangling link"):
            if kind == "absent":
                self.add(directory, "directory")
            elif kind == "file for directory":
                self.add(directory, "file", "x")
            elif kind == "linked directory":
                self.add(directory, "link", self.one(["/mnt/mtd/kept-" + role, "../kept-" + role]))
                self.add(f"mnt/mtd/kept-{role}/protocolconfig.xml", "file", text)
            elif kind == "loop":
                self.add(path, "link", "protocolconfig.xml")
            elif kind == "dangling link":
                self.add(path, "link", self.one(["/nowhere", "nowhere", ""]) or "/mnt/mtd/nowhere/at/all")
        elif kind in ("directory", "fifo"):
            self.add(path, kind)
        elif kind in ("link", "absolute link"):
            self.add(f"mnt/mtd/code/kept-{role}.xml", "file", text)
            self.add(path, "link", ("../" if kind == "link" else "/mnt/mtd/code/") + f"kept-{role}.xml")
        elif kind == "closed directory":
            self.add(path, "file", text)
            self.add(directory, "directory", "", 0)
        else:
            self.add(path, "file", text, 0 if kind == "unreadable" else None)

    def configuration(self, kind, rare):
        """The bytes of one copy."""
        if kind == "empty":
            return b""
        text = self.document(kind, rare)
        codec = self.one(["utf-8"] * 6 + ["gb2312", "gbk", "gb18030"])
        declared = codec if self.chance(0.8) else self.one(
            ["utf-8", "UTF8", "Utf-8", "utf8", "GB2312", "gbk", "UTF-16", "latin1", "UTF-8859", "no-such-set", "", None])
        if codec != "utf-8":
            self.tags.add("another codec than UTF-8")
        declaration = ""
        if declared is not None and self.chance(0.9):
            encoding = f' encoding="{declared}"' if declared or self.chance(0.5) else ""
            declaration = self.one(['<?xml version="1.0"{}?>', '<?xml version="1.0"{} standalone="no" ?>',
                                    "<?xml{}?>"]).format(encoding) + self.one(["\n", "\n", "", "<!-- 注 -->\n"])
        text = declaration + text
        if self.chance(0.1):
            text = text.replace("\n", self.one(["\r\n", "\r"]))
        if self.chance(0.02):
            self.tags.add("UTF-16")
            return text.encode(self.one(["utf-16", "utf-16-le", "utf-16-be"]))
        data = text.encode(codec, "replace")
        if self.chance(0.04):
            self.tags.add("byte-order mark")
            data = codecs.BOM_UTF8 + data
        if kind == "cut":
            data = data[:self.random.randrange(len(data))]
        elif kind == "broken":
            data = self.damaged(data, self.random.randint(1, 6))
        elif self.chance(0.06):
            self.tags.add("a few bytes damaged")
            data = self.damaged(data, 1)
        return data

    def damaged(self, data, count):
        for _ in range(count):
            at = self.random.randrange(len(data) or 1)
            how = self.one(["change", "insert", "remove", "markup"])
            end = at if how == "insert" else at + self.random.randint(1, 4 if how == "remove" else 1)
            new = {"remove": b"", "markup": self.one([b"<", b">", b"\"", b"&", b"/", b"</Configure>"])}.get(
                how, bytes([self.one([0, 0x80, 0xA1, 0xC2, 0xE5, 0xFE, 0xFF, 0x20, self.random.randrange(256)])]))
            data = data[:at] + new + data[end:]
        return data

    def document(self, kind, rare):
        root = "Configure" if kind != "wrong root" else self.one(["configure", "Config", "配置"])
        name = "" if kind == "nameless root" else f' name="{self.one(["Device", "", "设备", "ProtocolConfig"])}"'
        if kind == "no root":
            return self.one(["", "text", "<!-- nothing -->", "\n\n"])
        children = []
        for _ in range(self.one([0, 0, 0, 1, 2])):
            children.append(self.one(['<Other/>', '<Configure name="Log"><ConfigItem name="x"/></Configure>',
                                      '<Configure name="protocolconfig"/>', "text", "<!-- c -->",
                                      '<Configure name=""/>']))
        if kind == "search ended":
            children.append(self.one(["<Configure/>", '<Configure name="x"/><Other/>', '<Configure Name="x"/>']))
        if kind != "no section":
            section = "Configure" if not children or self.chance(0.8) else self.one(["Section", "ConfigItem"])
            children.append(f'<{section} name="ProtocolConfig">\n{self.entries(kind, rare)}</{section}>')
        if self.chance(0.2):
            children.append(self.one(['<Configure name="ProtocolConfig"><ConfigItem ProtocolName="second" '
                                      'ProtocolEnable="true"/></Configure>', "<Configure/>", "<Other/>"]))
        if rare < 0.006:
            self.tags.add("nested around the limit")
            depth = DEEPEST - 1 + self.random.randint(-2, 2)
            children.insert(self.one([0, len(children)]), "<Deep name='d'>" * depth + "</Deep>" * depth)
        return f"<{root}{name}>\n" + "\n".join(children) + f"\n</{root}>" + self.one(["\n", "", "\nbehind", "<Behind/>"])

    def entries(self, kind, rare):
        if kind == "no entry":
            return self.one(["", "<Other ProtocolName='A' ProtocolEnable='true'/>", "<configItem/>", "text"])
        text = ""
        for _ in range(self.one([0, 0, 0, 1])):
            text += self.one(["<Other ProtocolName='A' ProtocolEnable='true'/>\n", "<Configure name='x'/>\n"])
        count = self.one([1, 1, 2, 3, 3, 4, 5, 6, 8, 12])
        elements = ["ConfigItem"] + [self.one(["ConfigItem"] * 6 + ["Other", "Configure"]) for _ in range(count - 1)]
        text += "".join(self.entry(element) for element in elements)
        if rare > 0.984:
            self.tags.add("entries around the limit")
            more = MOST_ENTRIES - count + self.one([-1, 0, 0, 1, 1, 1, 2])
            text += "<a/>" * more
        return text

    def entry(self, element):
        name = self.one(self.names) if self.chance(0.85) else self.one(NAMES)
        attributes = [("ProtocolId", self.one(["1", "2", "id", "编号", ""])),
                      ("ProtocolType", self.one(["1", "0", "-5", "99999999999", "abc", "0x10", "", "1 "])),
                      ("ProtocolEnable", self.one(["true"] * 10 + ["True", "TRUE", "false", "False", "ture", "1", "yes",
                                                                  "", " true", "true "])),
                      ("ProtocolName", name)]
        if self.chance(0.12):
            del attributes[self.random.randrange(len(attributes))]
        if self.chance(0.05):
            attributes.append(self.one([("protocolname", "A"), ("ProtocolName", "B"), ("name", "x"), ("Enable", "true")]))
        self.random.shuffle(attributes)
        text = f"<{element}" + "".join(f" {key}={self.quoted(value)}" for key, value in attributes)
        return text + self.one(["/>", "/>", "/>", f"></{element}>", f"><Child ProtocolName='A'/></{element}>"]) + "\n"

    def quoted(self, value):
        quote = self.one(["\"", "\"", "'"])
        escapes = {"&": "&amp;", "<": "&lt;", quote: "&quot;" if quote == "\"" else "&apos;"}
        text = "".join(escapes.get(character, character) for character in value)
        if value and self.chance(0.05):
            self.tags.add("character reference")
            at = self.random.randrange(len(value))
            text = f"{value[:at]}&#x{ord(value[at]):X};{value[at + 1:]}".replace(quote, "")
        if value.isalnum() and value.isascii() and self.chance(0.03):
            return value
        return quote + text + quote

    # The start programs.

    def services(self):
        kind = self.one(["directory"] * 22 + ["absent", "empty", "file", "link", "absolute link", "dangling link", "closed"])
        place = SERVICES
        if kind == "absent":
            return
        if kind in ("file", "dangling link"):
            self.add(SERVICES, "file" if kind == "file" else "link", "/nowhere" if kind != "file" else "x")
            return
        if kind in ("link", "absolute link"):
            place = "mnt/services"
            self.add(SERVICES, "link", ("/" if kind == "absolute link" else "") + place)
        self.add(place, "directory", "", 0 if kind == "closed" else None)
        taken = set()
        for _ in range(0 if kind == "empty" else self.one([1, 2, 3, 4, 6, 8, 12])):
            name = self.service_name()
            if name not in taken and name.strip(b".") and len(name) < 256:
                taken.add(name)
                self.service(place.encode() + b"/" + name)

    def service_name(self):
        protocol = self.one(self.names) if self.chance(0.85) else self.one(NAMES)
        other = self.one(self.names)
        form = self.one(["{0}_loadservice"] * 6 +
                        ["{0}loadservice", "loadservice_{0}", "{0}_{1}_loadservice", "{0}_LoadService", "2{0}_loadservice",
                         ".{0}_loadservice", "{0}", "{0}_loadservic", "_{0}loadservice", "x{0}_loadservice.sh"])
        name = form.format(protocol, other)
        if self.chance(0.12):
            name = self.one([name.lower(), name.upper(), name.swapcase()])
        if self.chance(0.15):
            name += self.one(LEFTOVERS)
        if self.chance(0.06):
            name += self.one([" x", ";reboot", "$(x)", "`x`", "\nline", "\t", "\\", "*", "'", "\"", "&", "\x1b[2J", "%s"])
        data = name.replace("/", "|").replace("\0", "").encode()
        if self.chance(0.03):
            at = self.random.randint(0, len(data))
            data = data[:at] + self.one([b"\xff", b"\xc2", b"\x80", b"\xe7\xbd", b"\x85"]) + data[at:]
        if self.chance(0.14):
            # Around what a command has room for: 46 bytes of a name to start, 44 of a prefix to stop.
            if self.chance(0.6):
                data += b"y" * (self.random.randint(45, 48) - len(data))
            else:
                prefix = data.split(b"_")[0]
                data = b"y" * (self.random.randint(43, 46) - len(prefix)) + data
        return data

    def service(self, path):
        kind = self.one(["file"] * 14 + ["directory", "directory", "link", "dangling link", "link to directory", "fifo"])
        if kind == "file":
            self.add(path, "file", self.one(["#!/bin/sh\nexit 0\n", "", "#!/bin/sh\r\n", "\x7fELF", "#!", "exit 1\n"]),
                     self.one(MODES))
        elif kind == "directory":
            self.add(path, "directory")
        elif kind == "fifo":
            self.add(path, "fifo")
        else:
            target = {"link": "/bin/sh", "dangling link": self.one(["nowhere", "/no/where"]),
                      "link to directory": self.one(["/bin", "."])}[kind]
            self.add(path, "link", target)
