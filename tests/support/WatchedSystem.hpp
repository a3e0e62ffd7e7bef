#pragma once

#include <fl/SystemCalls.hpp>

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace test_support {

// A system call that was made, with what Disk needs to know about its effect.
struct Call {
    std::string_view name;
    bool succeeded = false;
    bool isOnDirectory = false;
    bool isCreation = false;
    ino_t inode = 0;  // of the file that was opened, named, read, written or synced
    std::vector<std::string> names = {};  // the names that the call was given, without directories
    std::string content = {};             // of the whole file, if the call has written to it

    bool writes() const {
        return name == "pwrite" || name == "copy_file_range" || name == "cloneRange" ||
               name == "ftruncate";
    }
};

// What goes wrong at one call. IsShort and MovesNothing are for calls that transfer bytes.
struct Fault {
    enum class Kind { Fails, IsShort, MovesNothing, Kills, Interferes, Follows };
    const char* name;
    Kind kind;
    int error = 0;  // the errno value; for Kind::Kills the signal
    // The calls that it can happen to, separated by blanks; empty for all.
    std::string_view calls = {};

    bool canStrike(std::string_view call) const {
        const auto inBlanks = [](std::string_view text) { return " " + std::string(text) + " "; };
        return calls.empty() || inBlanks(calls).find(inBlanks(call)) != std::string::npos;
    }
};

// As long as it exists, logs all calls through fl::filesystem::systemCalls() and all reads and
// writes of the standard file streams, and lets a Fault happen at one of them. Does not really
// sleep, but advances a clock of its own. fsync is logged and not carried out; Disk shows its
// effect. Only one may exist at a time. Calls of several threads are logged one after the other.
class WatchedSystem {
public:
    // The abilities of the file system that it simulates.
    enum class FileSystem {
        Current,   // as it is
        Sharing,   // can share blocks between files
        Older,     // no unnamed files, no copying in the kernel, no rename that refuses to replace
        Linkless,  // like Older, and no hard links and no locks either
    };

    explicit WatchedSystem(FileSystem fileSystem = FileSystem::Current);
    ~WatchedSystem();
    WatchedSystem(const WatchedSystem&) = delete;
    WatchedSystem& operator=(const WatchedSystem&) = delete;

    // Lets `fault` happen at call `number` (from 1). For Kind::Interferes, `interfere` is called
    // just before it; for Kind::Follows, just after.
    void strike(std::size_t number, const Fault& fault, std::function<void()> interfere = {});
    // The call at which the fault happened; null if it has not been made yet.
    const Call* struck() const noexcept;
    const std::vector<Call>& calls() const noexcept { return calls_; }

    // For the replaced calls: counts a call and returns the fault that must happen to it, or null.
    const Fault* begin(std::string_view call);
    void interfere();
    void log(Call call) { calls_.push_back(std::move(call)); }
    const fl::filesystem::SystemCalls& real() const noexcept { return real_; }

private:
    fl::filesystem::SystemCalls saved_;
    fl::filesystem::SystemCalls real_;
    std::size_t number_ = 0;
    Fault fault_{};
    std::function<void()> interfere_;
    std::vector<Call> calls_;
};

// A model of a directory on a disk. Apply the calls of a save one by one; it knows what the running
// system sees after each, and what is left of that if the power fails then.
class Disk {
public:
    void add(const std::string& name, ino_t inode, const std::string& content);
    void apply(const Call& call);

    static constexpr const char* kNothing = "(no such file)";
    std::string content(const std::string& name) const;
    // Every content that `name` may have if the power fails now: contents and names that have not
    // been synced may be lost or not.
    std::set<std::string> contentsAfterPowerLoss(const std::string& name) const;

private:
    using Names = std::map<std::string, ino_t>;
    using Contents = std::map<ino_t, std::string>;
    static std::string find(const Names& names, const Contents& contents, const std::string& name);

    Names names_, durableNames_;
    Contents contents_, durableContents_;
};

}  // namespace test_support
