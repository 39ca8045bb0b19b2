#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What a call does instead of its work.
enum class How {
    Fails,           ///< nothing, with an error
    FailsHalfway,    ///< half of it, then an error
    FailsAfterwards, ///< all of it, and reports an error
    Ends,            ///< nothing, without an error: there is no more to read
    EndsHalfway,     ///< half of it, without an error
    Answers,         ///< all of it, with a status (system)
};

/// What happens instead of one call of a function, or of every one.
struct Fault {
    static constexpr size_t Every = 0;

    std::string_view function = "";
    size_t call = 1; ///< counted from 1; `Every` call fails
    How how = How::Fails;
    int result = 0; ///< the errno of a failure, or the status that is answered
};

/// Stands between the product and the functions through which it reaches the kernel and the two conversion libraries:
/// the linker's --wrap leads their calls here. Counts them, and lets one of them fail.
///
/// A failure is as real as it can be: a stream that fails to be read, written or flushed is given a descriptor on
/// which that fails, so its error mark, its end mark and its buffer are those that the C library leaves. What gives
/// something back (fclose, closedir, the two iconv_close) does so and reports a failure.
///
/// Outside `watch` every call goes on as it is. One object at a time, one thread.
class SystemCalls {
public:
    SystemCalls();
    explicit SystemCalls(const Fault& wanted);
    ~SystemCalls();
    SystemCalls(const SystemCalls&) = delete;
    SystemCalls& operator=(const SystemCalls&) = delete;

    /// Runs a piece of the product whose calls are counted, and meet the fault, and whose output is kept.
    void watch(const std::function<void()>& action);

    /// @return what was printed on standard output, then on standard error, since the last call of this function.
    std::string takePrinted() { return std::exchange(printed, {}); }

    /// @return whether a call met the fault.
    bool faultHappened() const { return happened; }

    const Fault& fault() const { return wantedFault; }

    /// @return how often each function was called.
    const std::map<std::string_view, size_t>& counts() const { return calls; }

    /// @return how many files, directories and conversions were opened and not closed, those of `watch` only.
    long leftOpen() const { return open; }

    /// The functions stand here for the system: set before `watch`, empty for the machine as it is.
    std::string deviceRoot;                   ///< put before "/mnt/mtd/code/..." and "/factory_setting/"
    std::vector<std::string> listing;         ///< the names that readdir yields, of whatever directory
    std::function<void()> behindOpen;         ///< runs when an fopen has succeeded
    std::function<void()> behindFstat;        ///< runs when an fstat has succeeded
    std::function<void(size_t)> aheadReaddir; ///< runs before the n-th readdir, counted from 1

    /// @return the commands that were given to system, run or not.
    const std::vector<std::string>& commands() const { return given; }

    /// What a wrapped function does, in SystemCalls.cpp only.
    const Fault* meet(std::string_view function);
    std::string onHost(const char* path) const;
    void count(long opened) { open += opened; }
    const std::string* nextListed();
    void give(const char* command) { given.emplace_back(command); }
    void restartListing() { listed = 0; }

    static SystemCalls* active();

private:
    Fault wantedFault;
    bool watching = false;
    bool happened = false;
    long open = 0;
    size_t listed = 0;
    std::map<std::string_view, size_t> calls;
    std::vector<std::string> given;
    std::string printed;
};

/// The functions that are led here. A function that the product calls and that is not among them is found by a test.
const std::vector<std::string_view>& WatchedFunctions();
