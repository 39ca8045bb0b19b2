#include "check/Rules.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr Rule Table[] = {
    // Configuration.
    {"no-configuration", Severity::Error,
     "Neither the working copy nor the factory copy of protocolconfig.xml can be used, so the launcher prints two "
     "lines and runs nothing. Correct one of them; what is wrong with each is told by other findings."},
    {"configuration-absent", Severity::Warning,
     "One of the two copies of protocolconfig.xml is not there. Without the working copy the launcher prints a line at "
     "each start and reads the factory copy; without the factory copy nothing stands in for a damaged working copy."},
    {"configuration-unusable", Severity::Error,
     "The file is there and the launcher does not use it: it is no regular file, is empty, ends too early, is not "
     "well-formed, or lacks the root element, the section or the entries that it must have. The launcher then goes on "
     "to the factory copy. Also reported when this program explains a file otherwise than the launcher's parser reads "
     "it."},
    {"configuration-waits", Severity::Error,
     "A FIFO stands in the place of the file. The launcher waits until something opens it for writing, and runs "
     "nothing until then; after such a working copy the factory copy is not reached."},
    {"search-ended", Severity::Error,
     "The protocol section is looked for among the children of the root element, from the first \"Configure\" on. An "
     "element without an attribute \"name\" ends the search, even when the section follows. Give it a name, or move it "
     "before the first \"Configure\"."},
    {"nesting-depth", Severity::Error,
     "Elements nest deeper than 5,000. The launcher refuses such a text, which would overflow its stack."},
    {"too-many-entries", Severity::Error,
     "The section has more than 20,095 entries. When the launcher reads it, it ends by signal 6 before it runs "
     "anything; after such a working copy the factory copy is not reached."},
    {"byte-order-mark", Severity::Error,
     "The text begins with a UTF-8 byte-order mark. The launcher takes it for GB2312 then, cannot convert it and does "
     "not use the file. Save it as UTF-8 without a byte-order mark."},
    {"encoding-mismatch", Severity::Error,
     "The bytes do not belong to the declared encoding. A text declared as UTF-8 is taken as it is: wrong bytes get "
     "into the names, or swallow the quote after them. A text declared as GB2312 whose bytes are UTF-8 is converted to "
     "other characters, or is cut; it is taken for UTF-8 when all of it is valid as that, and it has a sequence of "
     "three bytes or does not convert. Declare what the editor writes."},
    {"encoding-cut", Severity::Error,
     "The text is read as GB2312, and has bytes that do not convert. The launcher sees nothing of the text from the "
     "first of them on. Declare encoding=\"utf-8\" if that is what the file is written in."},
    {"encoding-undeclared", Severity::Warning,
     "The text has bytes outside ASCII and no declaration of its encoding, so it is read as GB2312. Begin it with "
     "<?xml version=\"1.0\" encoding=\"utf-8\"?> (or \"gb2312\")."},
    {"encoding-not-known", Severity::Warning,
     "The launcher knows UTF-8; a text that declares anything else is read as GB2312, whatever the declaration says. "
     "Declare \"utf-8\" or \"gb2312\"."},
    {"zero-byte", Severity::Warning,
     "A text ends at its first zero byte; what comes after it is not read. A file system that lost data, or an editor "
     "that writes UTF-16, leaves such bytes."},
    {"section-duplicate", Severity::Warning,
     "A second element with name=\"ProtocolConfig\" follows the protocol section. Only the first is read."},
    {"entry-before-first", Severity::Warning,
     "Entries begin at the first \"ConfigItem\" of the section. An element before it is ignored, which is rarely "
     "meant: look for a misspelled \"ConfigItem\"."},
    {"entry-other-element", Severity::Warning,
     "After the first \"ConfigItem\" every element is taken as an entry, whatever its name. Its protocol is started "
     "when its ProtocolEnable is \"true\"; look for an element that belongs elsewhere."},
    {"attribute-unknown", Severity::Warning,
     "An entry has the attributes ProtocolName, ProtocolId, ProtocolType and ProtocolEnable, the root element and the "
     "protocol section have \"name\", in exactly this letter case. Others are ignored, and what was meant by a "
     "misspelled one is missing. Of a section without a name that ends the search, only what may have been meant for "
     "\"name\" is reported. Names that begin with \"xml\" or \"xsi:\" are for other programs."},
    {"enable-value", Severity::Warning,
     "ProtocolEnable enables a protocol when it is \"true\", in any letter case. Everything else disables it: \"1\" "
     "and \"yes\" too. Write \"true\" or \"false\"."},
    {"type-value", Severity::Warning,
     "ProtocolType is read with atoi: digits up to the first other character, 0 when there are none, and no promise "
     "for a number that does not fit in 32 bits. Write a whole decimal number."},
    {"name-empty", Severity::Error,
     "An enabled entry without a ProtocolName matches every start program: the first of the directory is run (or its "
     "server stopped) once more."},
    {"name-duplicate", Severity::Warning,
     "Two entries have the same ProtocolName, so they take the same start program, which is run twice when both are "
     "enabled."},
    {"id-empty", Severity::Warning, "An entry has no ProtocolId. The launcher does not use it, others may."},
    {"id-duplicate", Severity::Warning,
     "Two entries have the same ProtocolId. The launcher does not use it, but whoever tells protocols apart by it "
     "cannot."},

    // Choice of file.
    {"services-missing", Severity::Error,
     "\"/factory_setting/\" is not there or is no directory. The launcher takes it for empty and runs "
     "\"/factory_setting/\" itself for each enabled protocol, which the shell refuses."},
    {"program-missing", Severity::Error,
     "No name in \"/factory_setting/\" contains \"loadservice\" and the protocol's name, in exactly this letter case; "
     "directories and names with a leading dot do not count. To start, the launcher runs \"/factory_setting/\" itself, "
     "which the shell refuses, and to stop runs \"killall -15 _Server\"."},
    {"program-ambiguous", Severity::Warning,
     "Several names match one protocol, and the first in the order of the directory is run. That order is the file "
     "system's own: on the device it may be another than here, and it may change when a file is added."},
    {"program-case", Severity::Warning,
     "A start program would match the protocol if letter case did not matter. It does. Rename one of the two."},
    {"program-shared", Severity::Warning,
     "One start program is taken by two enabled protocols, or may be where the order of the directory is open: it is "
     "run twice, and the second stop finds nothing."},
    {"program-untaken", Severity::Warning,
     "A start program that no entry of any usable configuration takes, enabled or not: its entry is missing, its name "
     "is misspelled, or another program comes before it in the directory."},
    {"program-leftover", Severity::Warning,
     "The name looks like that of a copy which an editor or a package manager leaves behind. It counts as a start "
     "program all the same, and may be the one that is run. Remove it from the image."},
    {"name-contained", Severity::Warning,
     "A protocol's name is contained in another's, \"Modbus\" in \"ModbusTCP\": the start program of the longer "
     "matches the shorter, too, and the order of the directory decides."},

    // Will it run.
    {"shell-missing", Severity::Error,
     "There is no /bin/sh in the image, it leads to nothing, or it cannot be executed. The launcher runs every command "
     "by it, so nothing is started and nothing is stopped. What is wrong inside the shell's own file is "
     "told by the rules for programs."},
    {"not-executable", Severity::Error,
     "The file has no execute permission. The shell says so on the device's console, and nothing is started."},
    {"not-a-program", Severity::Error,
     "The link leads to a directory, a FIFO, a socket or a device, which cannot be run."},
    {"link-dangling", Severity::Error,
     "The symbolic link leads to nothing inside the image. Absolute links start at the image's root, as on the "
     "device."},
    {"link-loop", Severity::Error,
     "The symbolic link leads to itself, or over more than 40 links: the kernel refuses to follow it."},
    {"file-empty", Severity::Warning,
     "The file is empty. The shell runs it as a script without a line: nothing is started, and nothing is said."},
    {"interpreter-crlf", Severity::Error,
     "The interpreter line ends in CR LF. The kernel takes the CR as part of the interpreter's name, or of its "
     "argument, and does not find it. Save the script with LF."},
    {"interpreter-byte-order-mark", Severity::Error,
     "A byte-order mark stands before \"#!\". The kernel does not take the file for a script; a shell may run it "
     "itself, and complains about the first line. Save it without."},
    {"interpreter-missing", Severity::Error,
     "The interpreter that the first line names is not in the image, is not executable, or its path is longer than the "
     "kernel reads. The shell says \"not found\" of the script, although that is there. The same goes for what env is "
     "to run: the kernel gives it all that follows as one argument, so \"#!/usr/bin/env sh -e\" looks for a program "
     "\"sh -e\". The option -S splits it; the env of BusyBox has no such option."},
    {"interpreter-chain", Severity::Error,
     "The interpreter is a script, whose interpreter is a script, and so on. The kernel runs five scripts one by the "
     "other (tried with Linux 6.18) and gives up with \"Too many levels of symbolic links\" when there are more, as "
     "when "
     "a script is its own interpreter."},
    {"interpreter-relative", Severity::Warning,
     "The path of the interpreter does not begin with a \"/\". The kernel looks for it in the working directory of the "
     "shell, which is the one that the launcher was started in. Write the whole path."},
    {"interpreter-line-long", Severity::Warning,
     "The interpreter line has more than 127 bytes. Kernels before Linux 5.1 cut it there, within the interpreter's "
     "path or within its argument; later ones do so at 255. Shorten it."},
    {"elf-damaged", Severity::Error,
     "The file begins as an ELF program, but its headers are no program's or lead out of it. It was cut or "
     "overwritten, or is an object file."},
    {"elf-class", Severity::Error,
     "The program is for 32 bits and the image's own programs for 64, or the other way round. The kernel may refuse "
     "it."},
    {"elf-32-bit", Severity::Warning,
     "The program is for 32 bits and the image's own programs are for the same kind of processor with 64 (x86 and "
     "x86-64, ARM and AArch64, PowerPC, MIPS). A kernel for 64 bits runs it if it was built to, and the processor can; "
     "its libraries have to be for 32 bits, too."},
    {"elf-machine", Severity::Error,
     "The program is for another kind of processor than the image's own programs. It was built by the wrong compiler."},
    {"elf-byte-order", Severity::Error, "The program has the other byte order than the image's own programs."},
    {"elf-interpreter-missing", Severity::Error,
     "The dynamic linker that the program names (PT_INTERP) is not in the image, or is not executable. The shell says "
     "\"not found\", or \"Permission denied\", of the program, although that is there. One that is not there belongs "
     "to another C library: the program was built for that."},
    {"library-missing", Severity::Error,
     "A shared library that the program needs, itself or through another library, is nowhere that the dynamic linker "
     "looks. A DT_RUNPATH serves only the file that has it, not that file's libraries, unless the dynamic linker is "
     "musl's. A library that is found through LD_LIBRARY_PATH on the device is reported as well: it is not known "
     "here."},
    {"writable-by-others", Severity::Warning,
     "The group or everyone may write a program, a configuration, /factory_setting/, or a directory on the way to "
     "them. The launcher runs as root, and everything in /factory_setting/ may be what it runs: who can change the one "
     "or the other decides what runs as root."},
    {"name-shell-characters", Severity::Error,
     "The name of a start program reaches the shell unquoted. A blank ends the program's name, \";\" begins another "
     "command, \"$(...)\" is run; and a \"-\" at the beginning makes an option of what killall is given. Keep to "
     "letters, digits, \"_\", \"-\" and \".\"."},
    {"command-too-long", Severity::Error,
     "The command to start or to stop has more than 63 bytes and is not run. There is room for 46 bytes of the start "
     "program's name, and for 44 of its part before the first \"_\"; a Chinese character takes three. Where the order "
     "of the directory is open, each name that may be taken is looked at."},

    // Stop.
    {"server-name-long", Severity::Warning,
     "The kernel keeps 15 bytes of a process's name, so a prefix of more than 8 bytes is cut there. killall compares "
     "those 15 bytes and then looks at the command line or the program's path. Tried: BusyBox misses a script whose "
     "interpreter line has an argument; psmisc ends another program with the same 15 bytes when that has changed its "
     "command line. Shorten the prefix."},
    {"server-name-shared", Severity::Warning,
     "The start programs of two protocols have the same part before the first \"_\", so both servers are stopped by "
     "one name: \"IEC_101_loadservice\" and \"IEC_104_loadservice\" are both stopped by \"IEC_Server\"."},
    {"server-missing", Severity::Warning,
     "No program of the image has the name by which the protocol is stopped, so probably no process will. A server "
     "that renames itself, or is called so by a link made on the device, cannot be seen here. /dev, /proc, /sys and "
     "/run are not looked through. Of several files with the name those that can be executed are looked at, and each "
     "of them. A file that cannot be executed and is neither an ELF file nor begins with \"#!\" is taken for "
     "settings or the like."},
    {"server-no-interpreter-line", Severity::Error,
     "The server is a script without an interpreter line. The kernel does not run it; a shell does so itself and keeps "
     "its own name. Tried: neither the killall of psmisc nor that of BusyBox finds it. Begin the script with "
     "\"#!/bin/sh\"."},
    {"server-through-interpreter", Severity::Error,
     "The server's interpreter line goes through env, which replaces itself by the interpreter: the process has the "
     "interpreter's name. Tried: neither the killall of psmisc nor that of BusyBox finds it. Begin the script with the "
     "path of its interpreter."},
    {"start-through-interpreter", Severity::Warning,
     "The start script seems to start its server as the argument of an interpreter (\"sh X_Server\", \"python3 "
     "X_Server\", \". /usr/sbin/X_Server\"): the process has the interpreter's name then. Tried: neither killall finds "
     "it. Make the server executable, begin it with the path of its interpreter, and start it by its own name. A guess "
     "from the words of the script's commands, of its first 64 KiB: what is in variables, functions or here-documents "
     "is not known, nor is every interpreter. Nothing is said of a script that starts the server by its own name as "
     "well, nor where \".\" reads another file of that name, such as /etc/default/X_Server."},
    {"killall-missing", Severity::Error,
     "There is no killall in the image that can be executed. It comes with BusyBox or psmisc. The shell says \"not "
     "found\" when the launcher stops, and nothing is stopped."},

    // What was not looked at.
    {"partial-tree", Severity::Note,
     "The tree has neither /bin nor /usr/bin, so it is taken for a part that is laid over a system. What that system "
     "brings along (interpreters, libraries, killall) is not looked for."},
    {"not-looked-at", Severity::Warning,
     "Something is larger or more than this program looks at, is a device that it does not open, or cannot be read by "
     "this user: nothing is known of it. The launcher runs as root, and may read it."},
    {"findings-cut", Severity::Warning, "There are more findings of one rule than are listed. Correct these first."},
};

} // namespace

const Rule* AllRules(size_t& count) noexcept {
    count = std::size(Table);
    return Table;
}

const Rule* FindRule(const std::string& id) noexcept {
    const auto* const found =
        std::find_if(std::begin(Table), std::end(Table), [&id](const Rule& rule) { return id == rule.id; });
    return found == std::end(Table) ? nullptr : found;
}
