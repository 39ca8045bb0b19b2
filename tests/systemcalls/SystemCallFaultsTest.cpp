#include "charset/CharSetConverter.h"
#include "fileio/FileAccess.h"
#include "launcher/ListDirectory.h"
#include "tests/support/DeviceSandbox.h"
#include "tests/support/LauncherLines.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/systemcalls/SystemCalls.h"
#include "tests/systemcalls/WatchedRun.h"
#include "xmlconfig/ConfigFile.h"
#include "xmlconfig/XmlConfigureDocument.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// Each operation below is run without a fault, then with its first call of a function failing, with the second, and so
// on until there is none left, and with all of them failing; each time with every error that the manual pages give for
// the function (the lists below). What must come of it stands in the operation's table: the error's number never
// matters, which call it was does.

namespace {

struct FaultKind {
    std::string_view function;
    How how;
    std::vector<int> results;
};

// What POSIX.1-2017 and the manual pages (release 6.03) give for each function and for the calls that it makes:
// fopen(3), open(2), malloc(3); stat(2); fread(3), read(2); fwrite(3), write(2), fclose(3), fflush(3), close(2);
// opendir(3); readdir(3), getdents(2); closedir(3); iconv_open(3), iconv(3), iconv_close(3), also those of GNU
// libiconv; system(3), fork(2), wait(2). An error that the product's arguments rule out (EFAULT, EBADF, EEXIST without
// O_EXCL) is in it all the same. Out is what a program cannot see (ERESTARTNOINTR, "only during a trace"); EWOULDBLOCK
// is EAGAIN.
const std::vector<int> OpenErrors = {EACCES, EAGAIN, EBADF,   EBUSY, EDQUOT, EEXIST, EFAULT,  EFBIG,        EINTR,
                                     EINVAL, EIO,    EISDIR,  ELOOP, EMFILE, ENFILE, ENODEV,  ENAMETOOLONG, ENOENT,
                                     ENOMEM, ENOSPC, ENOTDIR, ENXIO, EPERM,  EROFS,  ETXTBSY, EOPNOTSUPP,   EOVERFLOW};
const std::vector<int> MeasureErrors = {EACCES, EBADF,        EFAULT, EINVAL,  EIO,      ELOOP,
                                        ENOENT, ENAMETOOLONG, ENOMEM, ENOTDIR, EOVERFLOW};
const std::vector<int> ReadErrors = {EAGAIN, EBADF, EFAULT, EINTR, EINVAL, EIO, EISDIR, ENOMEM, ENXIO, EOVERFLOW};
const std::vector<int> WriteErrors = {EAGAIN, EBADF, EDESTADDRREQ, EDQUOT, EFAULT, EFBIG, EINTR,
                                      EINVAL, EIO,   ENOMEM,       ENOSPC, ENXIO,  EPERM, EPIPE};
const std::vector<int> ListErrors = {EBADF, EFAULT, EINVAL, EIO, ENOENT, ENOTDIR, EOVERFLOW};
const std::vector<int> CloseErrors = {EBADF, EDQUOT, EINTR, EIO, ENOSPC};
const std::vector<int> ConversionErrors = {E2BIG, EBADF, EILSEQ, EINVAL};
const std::vector<int> ConversionOpenErrors = {EINVAL, EMFILE, ENFILE, ENOMEM};
const std::vector<int> ForkErrors = {EAGAIN, ENOMEM, ENOSYS};
const std::vector<int> WaitErrors = {EAGAIN, ECHILD, EINTR, EINVAL, ESRCH};

const std::vector<FaultKind> FaultKinds = {
    {"fopen", How::Fails, OpenErrors},
    {"fstat", How::Fails, MeasureErrors},
    {"fread", How::Fails, ReadErrors},
    {"fread", How::FailsHalfway, ReadErrors},
    {"fread", How::Ends, {0}},
    {"fread", How::EndsHalfway, {0}},
    {"fwrite", How::Fails, WriteErrors},
    {"fwrite", How::FailsHalfway, WriteErrors},
    {"fclose", How::Fails, WriteErrors},
    {"fclose", How::FailsAfterwards, WriteErrors},
    {"opendir", How::Fails, OpenErrors},
    {"readdir", How::Fails, ListErrors},
    {"readdir", How::Ends, {0}},
    {"closedir", How::FailsAfterwards, CloseErrors},
    {"iconv_open", How::Fails, ConversionOpenErrors},
    {"iconv", How::Fails, ConversionErrors},
    {"iconv", How::FailsHalfway, ConversionErrors},
    {"iconv_close", How::FailsAfterwards, {EBADF}},
    {"libiconv_open", How::Fails, ConversionOpenErrors},
    {"libiconv", How::Fails, ConversionErrors},
    {"libiconv", How::FailsHalfway, ConversionErrors},
    {"libiconv_close", How::FailsAfterwards, {EBADF}},
    {"system", How::Fails, ForkErrors},                 // no process could be made
    {"system", How::FailsAfterwards, WaitErrors},       // its end was not seen
    {"system", How::Answers, {1 << 8, 127 << 8, 6, 9}}, // it failed, there is no shell, it was killed
};

// The calls of one function that a row of a table is about.
struct Calls {
    size_t first;
    size_t last;
    bool all; ///< also when every call fails
};

constexpr Calls Only{1, 1, true};       // there is one
constexpr Calls Any{1, SIZE_MAX, true}; // whichever
constexpr Calls All{SIZE_MAX, 0, true}; // every one of several
constexpr Calls First{1, 1, false};     // of several
constexpr Calls Second{2, 2, false};    // of two
constexpr Calls Nth(size_t first, size_t last) {
    return {first, last, false};
}

// A line of a table: which call fails, what comes of it, and, where that makes a difference, how it fails.
struct Row {
    std::string_view function;
    Calls calls;
    std::string outcome;
    std::set<How> how = {};

    bool isAbout(const Fault& fault) const {
        return function == fault.function && (how.empty() || how.count(fault.how) != 0) &&
               (fault.call == Fault::Every ? calls.all : fault.call >= calls.first && fault.call <= calls.last);
    }
};

struct Operation {
    std::string name;
    std::string (*run)(SystemCalls& calls);
    std::string undisturbed;
    std::vector<Row> rows;
};

const char* Word(bool result) {
    return result ? "true" : "false";
}

// --- ReadFileToString, WriteStringToFile ---

std::string ReadWholeText(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "content");
    std::string text = "before";
    bool read = false;

    calls.watch([&] { read = ReadFileToString(path, text); });

    return std::string(Word(read)) + ", text: " + text;
}

const Operation ReadOperation = {
    "ReadFileToString",
    ReadWholeText,
    "true, text: content",
    {
        {"fopen", Only, "false, text: before"},
        {"fstat", Only, "false, text: before"},
        {"fread", Only, "false, text: before"},
        {"fclose", Only, "true, text: content"}, // all had been read
    },
};

std::string WriteWholeText(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "what it was");
    bool written = false;

    calls.watch([&] { written = WriteStringToFile(path, "new text"); });

    return std::string(Word(written)) + ", file: " + ReadWholeFile(path);
}

const Operation WriteOperation = {
    "WriteStringToFile",
    WriteWholeText,
    "true, file: new text",
    {
        {"iconv_open", Only, "false, file: what it was"}, // the path is not known
        {"iconv", Only, "false, file: what it was"},
        {"iconv_close", Only, "true, file: new text"},
        {"fopen", Only, "false, file: what it was"},
        {"fwrite", Only, "false, file: ", {How::Fails}}, // the open had emptied it
        {"fwrite", Only, "false, file: new ", {How::FailsHalfway}},
        {"fclose", Only, "false, file: ", {How::Fails}}, // all was in the buffer
        {"fclose", Only, "false, file: new text", {How::FailsAfterwards}},
    },
};

// --- FileAccess ---

// errno is that of the failed call when the operation returns.
std::string WithErrno(const SystemCalls& calls, std::string_view function, std::string report) {
    const Fault& fault = calls.fault();
    const bool hasErrno = fault.how != How::Ends && fault.how != How::EndsHalfway;
    if (calls.faultHappened() && fault.function == function && hasErrno && errno != fault.result) {
        report += " (errno is not that of the call)";
    }
    return report;
}

std::string ReadByAccess(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "content!");
    std::string report;

    calls.watch([&] {
        FileAccess file;
        char buffer[8];
        report += WithErrno(calls, "fopen", Word(file.Open(path.c_str(), FileRead)));
        report += WithErrno(calls, "fstat", " " + std::to_string(file.GetSize()));
        report += WithErrno(calls, "fread", " " + std::to_string(file.Read(buffer, sizeof buffer)));
        report += WithErrno(calls, "fread", " " + std::to_string(file.Read(buffer, sizeof buffer)));
        report += WithErrno(calls, "fclose", std::string(" ") + Word(file.Close()));
        report += std::string(" ") + Word(file.Close());
    });

    return report;
}

// Open, GetSize, Read twice, Close twice.
const Operation AccessReadOperation = {
    "FileAccessRead",
    ReadByAccess,
    "true 8 8 0 true true",
    {
        {"fopen", Only, "false -1 -1 -1 true true"},
        {"fstat", Only, "true -1 8 0 true true"},
        // The error mark stays, though the descriptor reads again.
        {"fread", First, "true 8 -1 -1 true true", {How::Fails, How::FailsHalfway}},
        {"fread", All, "true 8 -1 -1 true true", {How::Fails, How::FailsHalfway}},
        {"fread", First, "true 8 0 0 true true", {How::Ends}},
        {"fread", All, "true 8 0 0 true true", {How::Ends}},
        {"fread", First, "true 8 4 0 true true", {How::EndsHalfway}},
        {"fread", All, "true 8 4 0 true true", {How::EndsHalfway}},
        {"fread", Second, "true 8 8 -1 true true", {How::Fails, How::FailsHalfway}},
        {"fread", Second, "true 8 8 0 true true", {How::Ends, How::EndsHalfway}},
        {"fclose", Only, "true 8 8 0 false true"},
    },
};

std::string WriteByAccess(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", "what it was");
    std::string report;

    calls.watch([&] {
        FileAccess file;
        report += WithErrno(calls, "fopen", Word(file.OpenUtf8(path.c_str(), FileWrite | FileTruncate)));
        report += WithErrno(calls, "fwrite", " " + std::to_string(file.Write("new text", 8)));
        report += WithErrno(calls, "fwrite", " " + std::to_string(file.Write("!", 1)));
        report += WithErrno(calls, "fclose", std::string(" ") + Word(file.Close()));
        report += std::string(" ") + Word(file.Close());
    });

    return report + ", file: " + ReadWholeFile(path);
}

// OpenUtf8, Write twice, Close twice.
const Operation AccessWriteOperation = {
    "FileAccessWrite",
    WriteByAccess,
    "true 8 1 true true, file: new text!",
    {
        {"iconv_open", Only, "false -1 -1 true true, file: what it was"},
        {"iconv", Only, "false -1 -1 true true, file: what it was"},
        {"iconv_close", Only, "true 8 1 true true, file: new text!"},
        {"fopen", Only, "false -1 -1 true true, file: what it was"},
        // The error mark stays: a second Write that reached the file is reported as failed all the same.
        {"fwrite", First, "true -1 -1 true true, file: !", {How::Fails}},
        {"fwrite", First, "true -1 -1 true true, file: new !", {How::FailsHalfway}},
        {"fwrite", Second, "true 8 -1 true true, file: new text"},
        {"fwrite", All, "true -1 -1 true true, file: ", {How::Fails}},
        {"fwrite", All, "true -1 -1 true true, file: new ", {How::FailsHalfway}},
        {"fclose", Only, "true 8 1 false true, file: ", {How::Fails}},
        {"fclose", Only, "true 8 1 false true, file: new text!", {How::FailsAfterwards}},
    },
};

// --- ListDirectory ---

std::string List(SystemCalls& calls) {
    const TemporaryDirectory dir;
    std::vector<std::string> names{"before"};
    bool listed = false;
    calls.listing = {".", "a", "..", "b"};

    calls.watch([&] { listed = ListDirectory(dir.path(), names, "*"); });

    std::string report = std::string(Word(listed)) + ", names:";
    for (const std::string& name : names) {
        report += " " + name;
    }
    return report;
}

const Operation ListOperation = {
    "ListDirectory",
    List,
    "true, names: before a b",
    {
        {"opendir", Only, "false, names: before"},
        // An error ends the listing like its end does.
        {"readdir", Nth(1, 2), "true, names: before"},
        {"readdir", Nth(3, 4), "true, names: before a"},
        {"readdir", Nth(5, 5), "true, names: before a b"},
        {"readdir", All, "true, names: before"},
        {"closedir", Only, "true, names: before a b"},
    },
};

// --- Conversions ---

std::string ConvertToUtf8(SystemCalls& calls) {
    std::string text = "before";

    calls.watch([&] { CharSetConverter::Convert("abcdef", text, CharSetGb2312, CharSetUtf8); });

    return "text: " + text;
}

const Operation ConvertOperation = {
    "CharSetConverterConvert",
    ConvertToUtf8,
    "text: abcdef",
    {
        {"libiconv_open", Only, "text: "},
        {"libiconv", Only, "text: ", {How::Fails}},
        {"libiconv", Only, "text: abc", {How::FailsHalfway}}, // what was converted is kept
        {"libiconv_close", Only, "text: abcdef"},
    },
};

std::string Widen(SystemCalls& calls) {
    std::wstring text = L"before";
    int32_t result = 0;

    calls.watch([&] { result = Utf8ToWide("abcdef", text); });

    return std::to_string(result) + ", text: " + std::string(text.begin(), text.end());
}

const Operation WidenOperation = {
    "Utf8ToWide",
    Widen,
    "0, text: abcdef",
    {
        {"iconv_open", Only, "-1, text: "},
        {"iconv", Only, "-1, text: "}, // a part would name another file
        {"iconv_close", Only, "0, text: abcdef"},
    },
};

// --- XmlConfigureDocument ---

constexpr const char* Gb2312Document = "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n"
                                       "<Configure name=\"new\"><Configure name=\"Section\"/></Configure>\n";
constexpr const char* SavedDocument = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
                                      "<Configure name=\"new\">\n\t<Configure name=\"Section\" />\n</Configure>\n";
constexpr const char* CreatedDocument = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n"
                                        "<Configure name=\"HardwareConfig\" />\n";

bool FindsNode(const XmlConfigureDocument& document, const char* name) {
    SafePointer<XmlConfigureNode> node;
    return document.GetNode(name, node);
}

std::string LoadDocument(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Gb2312Document);
    XmlConfigureDocument document;
    bool loaded = false;

    calls.watch([&] { loaded = document.Load(path, CharSetUtf8, ReadWrite); });

    return std::string(Word(loaded)) + ", section: " + Word(FindsNode(document, "Section"));
}

const Operation LoadOperation = {
    "DocumentLoad",
    LoadDocument,
    "true, section: true",
    {
        {"fopen", Only, "false, section: false"},
        {"fstat", Only, "false, section: false"},
        {"fread", Only, "false, section: false"},
        {"fclose", Only, "true, section: true"},
        {"libiconv_open", Only, "false, section: false"}, // an empty text is no document
        {"libiconv", Only, "false, section: false"},      // nor is one that is cut
        {"libiconv_close", Only, "true, section: true"},
    },
};

// Of another document, whose character has other bytes in UTF-8: what is saved tells what it was taken for.
constexpr const char* EarlierDocument = "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n"
                                        "<Configure name=\"\xCD\xF8\"><Configure name=\"Earlier\"/></Configure>\n";
constexpr const char* EarlierSaved =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
    "<Configure name=\"\xE7\xBD\x91\">\n\t<Configure name=\"Earlier\" />\n</Configure>\n";

// The first Load is for writing, in GB2312; the second one for reading only, as UTF-8, of another file. Which of them a
// Save obeys shows in the first file. The second file is never written.
std::string LoadAgain(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string earlier = dir.write("earlier", EarlierDocument);
    const std::string later = dir.write("later", Gb2312Document);
    XmlConfigureDocument document;
    EXPECT_TRUE(document.Load(earlier, CharSetGb2312, ReadWrite));
    bool loaded = false;

    calls.watch([&] { loaded = document.Load(later, CharSetUtf8, ReadOnly); });

    std::string report = std::string(Word(loaded)) + ", earlier: " + Word(FindsNode(document, "Earlier")) +
                         ", section: " + Word(FindsNode(document, "Section"));
    report += std::string("; saved: ") + Word(document.Save());
    EXPECT_EQ(ReadWholeFile(later), Gb2312Document);
    const std::string content = ReadWholeFile(earlier);
    return report + ", file: " + (content == EarlierDocument ? "what it was" : content);
}

const std::string LoadedAgain = "true, earlier: false, section: true; saved: true, file: what it was";
// Nothing was read: the tree is still the earlier one.
const std::string KeptEarlier = "false, earlier: true, section: false; saved: true, file: " + std::string(EarlierSaved);
// The tree was given up for the text of the second file, of which too little came: that is what is saved.
const std::string LostEarlier = "false, earlier: false, section: false; saved: true, file: ";
const std::string LeftOfTheCut = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<Configure />\n";

const Operation LoadAgainOperation = {
    "DocumentLoadedAgain",
    LoadAgain,
    LoadedAgain,
    {
        {"fopen", Only, KeptEarlier},
        {"fstat", Only, KeptEarlier},
        {"fread", Only, KeptEarlier},
        {"fclose", Only, LoadedAgain},
        {"libiconv_open", Only, LostEarlier},
        {"libiconv", Only, LostEarlier, {How::Fails}},
        {"libiconv", Only, LostEarlier + LeftOfTheCut, {How::FailsHalfway}},
        {"libiconv_close", Only, LoadedAgain},
    },
};

// What a file holds, of a document that was to be saved over "what it was".
std::string Content(const std::string& path, const std::string& saved) {
    const std::string content = ReadWholeFile(path);
    if (content == saved) {
        return "saved";
    }
    if (content == saved.substr(0, saved.size() / 2)) {
        return "the first half";
    }
    return content == Gb2312Document ? "what it was" : content.empty() ? "empty" : content;
}

// The second Save, undisturbed, tells whether the document can still be saved: one that was saved is closed.
std::string SaveTwice(SystemCalls& calls, const std::string& path, XmlConfigureDocument& document,
                      const std::string& whole) {
    bool saved = false;
    calls.watch([&] { saved = document.Save(); });
    std::string report = std::string(Word(saved)) + ", file: " + Content(path, whole);

    const bool again = document.Save();
    return report + "; again: " + Word(again) + ", file: " + Content(path, whole);
}

std::string SaveDocument(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Gb2312Document);
    XmlConfigureDocument document;
    EXPECT_TRUE(document.Load(path, CharSetGb2312, ReadWrite));
    return SaveTwice(calls, path, document, SavedDocument);
}

const std::string Saved = "true, file: saved; again: true, file: saved";
const std::string Untouched = "false, file: what it was; again: true, file: saved";
const std::string Emptied = "false, file: empty; again: true, file: saved";
const std::string HalfSaved = "false, file: the first half; again: true, file: saved";
const std::string SavedUnawares = "false, file: saved; again: true, file: saved";

const Operation SaveOperation = {
    "DocumentSave",
    SaveDocument,
    Saved,
    {
        {"libiconv_open", Only, Untouched},
        {"libiconv", Only, Untouched, {How::Fails}},
        // A text that does not convert is cut there and saved so: see CharSetConverter::Convert.
        {"libiconv", Only, "true, file: the first half; again: true, file: the first half", {How::FailsHalfway}},
        {"libiconv_close", Only, Saved},
        {"iconv_open", Only, Untouched},
        {"iconv", Only, Untouched},
        {"iconv_close", Only, Saved},
        {"fopen", Only, Untouched},
        {"fwrite", Only, Emptied, {How::Fails}},
        {"fwrite", Only, HalfSaved, {How::FailsHalfway}},
        {"fclose", Only, Emptied, {How::Fails}},
        {"fclose", Only, SavedUnawares, {How::FailsAfterwards}},
    },
};

std::string CreateDocument(SystemCalls& calls) {
    const TemporaryDirectory dir;
    const std::string path = dir.write("file", Gb2312Document);
    XmlConfigureDocument document;
    bool loaded = false;
    calls.watch([&] { loaded = document.Load(path, CharSetUtf8, Create); });
    return std::string(Word(loaded)) + "; " + SaveTwice(calls, path, document, CreatedDocument);
}

const Operation CreateOperation = {
    "DocumentCreateAndSave",
    CreateDocument,
    "true; " + Saved,
    {
        {"iconv_open", Only, "true; " + Untouched},
        {"iconv", Only, "true; " + Untouched},
        {"iconv_close", Only, "true; " + Saved},
        {"fopen", Only, "true; " + Untouched},
        {"fwrite", Only, "true; " + Emptied, {How::Fails}},
        {"fwrite", Only, "true; " + HalfSaved, {How::FailsHalfway}},
        {"fclose", Only, "true; " + Emptied, {How::Fails}},
        {"fclose", Only, "true; " + SavedUnawares, {How::FailsAfterwards}},
    },
};

// --- The command ---

// What is printed for a service: its line alone, or behind the command that was run for it, which begins with "$ ".
struct Service {
    std::string line;
    std::string run;
};

Service Start(const std::string& file) {
    const std::string line = "Run LoadServcie(/factory_setting/" + file + ") \n";
    return {line, "$ /factory_setting/" + file + "\n" + line};
}

Service Stop(const std::string& prefix) {
    const std::string line = "Stop LoadServcie(killall -15 " + prefix + "_Server) \n";
    return {line, "$ killall -15 " + prefix + "_Server\n" + line};
}

// The working copy is written in GB2312, the factory copy in UTF-8 unless it says otherwise.
enum Copies { Both, BothInGb2312, FactoryOnly };

struct Device : TemporaryDirectory {
    explicit Device(Copies copies) {
        const std::string gb2312 = "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n";
        const std::string utf8 = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
        if (copies != FactoryOnly) {
            add(DeviceSandbox::WorkingConfig, ProtocolConfigText({{"OFF", false}, {"ABC"}, {"XYZ"}}, gb2312));
        }
        add(DeviceSandbox::FactoryConfig,
            ProtocolConfigText({{"XYZ"}, {"FACTORY", false}}, copies == BothInGb2312 ? gb2312 : utf8));
        add("/factory_setting/unread", ""); // the listing is given
    }

private:
    void add(const std::string& path, const std::string& content) const {
        static_cast<void>(write(path.substr(1), content));
    }
};

std::string RunCommand(SystemCalls& calls, const char* mode, const Device& device) {
    calls.deviceRoot = device.path();
    calls.listing = {".", "ABC_loadservice", "..", "XYZ_loadservice"};
    return RunLauncher(calls, mode);
}

// No run changes a device, and there are hundreds of runs: each is laid out once.
const Device& DeviceWithBoth() {
    static const Device device(Both);
    return device;
}

std::string StartServices(SystemCalls& calls) {
    return RunCommand(calls, "1", DeviceWithBoth());
}

std::string StopServices(SystemCalls& calls) {
    return RunCommand(calls, "0", DeviceWithBoth());
}

const Device& DeviceWithBothInGb2312() {
    static const Device device(BothInGb2312);
    return device;
}

std::string StartWithoutUtf8(SystemCalls& calls) {
    return RunCommand(calls, "1", DeviceWithBothInGb2312());
}

std::string StopWithoutUtf8(SystemCalls& calls) {
    return RunCommand(calls, "0", DeviceWithBothInGb2312());
}

const Device& DeviceWithFactoryOnly() {
    static const Device device(FactoryOnly);
    return device;
}

std::string StartFromFactory(SystemCalls& calls) {
    return RunCommand(calls, "1", DeviceWithFactoryOnly());
}

std::string StopFromFactory(SystemCalls& calls) {
    return RunCommand(calls, "0", DeviceWithFactoryOnly());
}

const std::string Off = "Protocol(OFF) disable\n";
const std::string FactoryOff = "Protocol(FACTORY) disable\n";
const std::string End = "exit 0";
const std::string NoConfiguration = std::string(WorkingFailed) + FactoryFailed + End;

// Starting and stopping differ in the commands only. `none` is that of a protocol without a start program: the service
// directory itself, or a server without a name. A factory copy in UTF-8 is read without a conversion.
Operation CommandOperation(const std::string& name, std::string (*run)(SystemCalls&), const Service& abc,
                           const Service& xyz, const Service& none, Copies copies = Both) {
    const std::string all = Off + abc.run + xyz.run + End;
    const std::string fromFactory = WorkingFailed + xyz.run + FactoryOff + End;
    const std::string unconverted = copies == BothInGb2312 ? NoConfiguration : fromFactory;
    return {name,
            run,
            all,
            {
                {"fopen", First, fromFactory},
                {"fopen", All, NoConfiguration},
                {"fstat", First, fromFactory},
                {"fstat", All, NoConfiguration},
                {"fread", First, fromFactory},
                {"fread", All, NoConfiguration},
                {"fclose", Only, all},
                {"libiconv_open", First, fromFactory},
                {"libiconv_open", All, unconverted},
                {"libiconv", First, fromFactory},
                {"libiconv", All, unconverted},
                {"libiconv_close", Only, all},
                {"opendir", First, Off + none.run + xyz.run + End},
                {"opendir", Second, Off + abc.run + none.run + End},
                {"opendir", All, Off + none.run + none.run + End},
                {"readdir", Nth(1, 2), Off + none.run + xyz.run + End},
                {"readdir", Nth(3, 5), all}, // what was looked for had been listed
                {"readdir", Nth(6, 9), Off + abc.run + none.run + End},
                {"readdir", Nth(10, 10), all},
                {"readdir", All, Off + none.run + none.run + End},
                {"closedir", Any, all},
                // The line says what was tried; how it ended is not looked at.
                {"system", First, Off + abc.line + xyz.run + End, {How::Fails}},
                {"system", Second, Off + abc.run + xyz.line + End, {How::Fails}},
                {"system", All, Off + abc.line + xyz.line + End, {How::Fails}},
                {"system", Any, all, {How::FailsAfterwards, How::Answers}},
            }};
}

const Service StartAbc = Start("ABC_loadservice");
const Service StartXyz = Start("XYZ_loadservice");
const Service StartNone = Start("");
const Service StopAbc = Stop("ABC");
const Service StopXyz = Stop("XYZ");
const Service StopNone = Stop("");

const Operation StartOperation = CommandOperation("Start", StartServices, StartAbc, StartXyz, StartNone);
const Operation StopOperation = CommandOperation("Stop", StopServices, StopAbc, StopXyz, StopNone);
const Operation StartWithoutUtf8Operation =
    CommandOperation("StartWithBothCopiesInGb2312", StartWithoutUtf8, StartAbc, StartXyz, StartNone, BothInGb2312);
const Operation StopWithoutUtf8Operation =
    CommandOperation("StopWithBothCopiesInGb2312", StopWithoutUtf8, StopAbc, StopXyz, StopNone, BothInGb2312);

Operation FactoryOperation(const std::string& name, std::string (*run)(SystemCalls&), const Service& xyz,
                           const Service& none) {
    const std::string all = WorkingFailed + xyz.run + FactoryOff + End;
    const std::string findsNothing = WorkingFailed + none.run + FactoryOff + End;
    return {name,
            run,
            all,
            {
                {"fopen", First, all}, // it finds nothing anyway
                {"fopen", Second, NoConfiguration},
                {"fopen", All, NoConfiguration},
                {"fstat", Only, NoConfiguration},
                {"fread", Only, NoConfiguration},
                {"fclose", Only, all},
                {"opendir", Only, findsNothing},
                {"readdir", Nth(1, 4), findsNothing},
                {"readdir", Nth(5, 5), all},
                {"readdir", All, findsNothing},
                {"closedir", Only, all},
                {"system", Only, WorkingFailed + xyz.line + FactoryOff + End, {How::Fails}},
                {"system", Only, all, {How::FailsAfterwards, How::Answers}},
            }};
}

const Operation StartFromFactoryOperation =
    FactoryOperation("StartFromTheFactoryCopy", StartFromFactory, StartXyz, StartNone);
const Operation StopFromFactoryOperation =
    FactoryOperation("StopFromTheFactoryCopy", StopFromFactory, StopXyz, StopNone);

// --- The sweep ---

std::string Description(const Fault& fault) {
    static const char* const hows[] = {"fails", "fails halfway", "fails afterwards", "ends", "ends halfway", "answers"};
    return std::string(fault.function) + ", call " +
           (fault.call == Fault::Every ? std::string("each") : std::to_string(fault.call)) + ", " +
           hows[static_cast<size_t>(fault.how)] + " with " + std::to_string(fault.result);
}

// Whatever happens, nothing is left open, and nothing printed that an operation's report does not have.
std::string Report(const Operation& operation, SystemCalls& calls) {
    std::string report = operation.run(calls) + calls.takePrinted();
    if (calls.leftOpen() != 0) {
        report += "; left open: " + std::to_string(calls.leftOpen());
    }
    return report;
}

class SystemCallFaultsTest : public testing::TestWithParam<const Operation*> {};

std::string Name(const testing::TestParamInfo<const Operation*>& info) {
    return info.param->name;
}

const Row* OnlyRowAbout(const Operation& operation, const Fault& fault) {
    const Row* found = nullptr;
    for (const Row& row : operation.rows) {
        if (row.isAbout(fault)) {
            EXPECT_EQ(found, nullptr) << "two rows are about it";
            found = &row;
        }
    }
    return found;
}

} // namespace

TEST_P(SystemCallFaultsTest, WhateverCallFailsWithWhateverErrorTheTableSaysWhatComesOfIt) {
    const Operation& operation = *GetParam();
    SystemCalls calls;
    ASSERT_EQ(Report(operation, calls), operation.undisturbed);
    ASSERT_FALSE(calls.counts().empty());
    std::set<const Row*> used;

    for (const auto& [function, count] : calls.counts()) {
        size_t kinds = 0;
        for (const FaultKind& kind : FaultKinds) {
            if (kind.function != function) {
                continue;
            }
            ++kinds;
            // Call 0 is every one of them; behind the last one a run is undisturbed.
            for (size_t call = Fault::Every; call <= count + 1; ++call) {
                for (const int result : kind.results) {
                    const Fault fault{function, call, kind.how, result};
                    SCOPED_TRACE(Description(fault));
                    SystemCalls faulty(fault);
                    const std::string report = Report(operation, faulty);

                    EXPECT_EQ(faulty.faultHappened(), call <= count);
                    if (!faulty.faultHappened()) {
                        EXPECT_EQ(report, operation.undisturbed);
                        continue;
                    }
                    const Row* const row = OnlyRowAbout(operation, fault);
                    ASSERT_NE(row, nullptr) << "the table does not know this call; what came of it:\n" << report;
                    EXPECT_EQ(report, row->outcome);
                    used.insert(row);
                }
            }
        }
        EXPECT_GT(kinds, 0U) << "no way to fail is known for " << function;
    }
    for (const Row& row : operation.rows) {
        EXPECT_EQ(used.count(&row), 1U) << "there is no such call: " << row.function << " " << row.calls.first;
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, SystemCallFaultsTest,
                         testing::Values(&ReadOperation, &WriteOperation, &AccessReadOperation, &AccessWriteOperation,
                                         &ListOperation, &ConvertOperation, &WidenOperation, &LoadOperation,
                                         &LoadAgainOperation, &SaveOperation, &CreateOperation, &StartOperation,
                                         &StopOperation, &StartWithoutUtf8Operation, &StopWithoutUtf8Operation,
                                         &StartFromFactoryOperation, &StopFromFactoryOperation),
                         Name);

// A function that no operation above calls would be watched in vain.
TEST(SystemCallFaultsTest, EachFunctionThatIsWatchedCanFailAndIsCalledByAnOperation) {
    for (const std::string_view function : WatchedFunctions()) {
        SCOPED_TRACE(function);
        bool known = false;
        for (const FaultKind& kind : FaultKinds) {
            known = known || kind.function == function;
        }
        EXPECT_TRUE(known);
        bool called = false;
        for (const Operation* operation : {&WriteOperation, &StartOperation}) {
            for (const Row& row : operation->rows) {
                called = called || row.function == function;
            }
        }
        EXPECT_TRUE(called);
    }
}
