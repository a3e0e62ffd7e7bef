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

// One call of the system as it was made, and what it left behind.
struct Call {
    std::string_view name;
    bool succeeded = false;
    bool isOnDirectory = false;
    bool isCreation = false;
    ino_t inode = 0;  // of what was opened, named, read, written or made durable
    std::vector<std::string> names = {};  // without their directories
    std::string content = {};             // of a file that the call has written to

    bool writes() const {
        return name == "pwrite" || name == "copy_file_range" || name == "cloneRange" ||
               name == "ftruncate";
    }
};

// What happens at the call that is struck. Transfers alone can be short or move nothing.
struct Fault {
    enum class Kind { Fails, IsShort, MovesNothing, Kills, Interferes };
    const char* name;
    Kind kind;
    int error = 0;                // of Kind::Kills the signal
    std::string_view calls = {};  // that it can happen to, with blanks between; all when empty

    bool canStrike(std::string_view call) const {
        const auto inBlanks = [](std::string_view text) { return " " + std::string(text) + " "; };
        return calls.empty() || inBlanks(calls).find(inBlanks(call)) != std::string::npos;
    }
};

// While it lives, sleeps by putting a clock of its own on, counts and logs the calls through
// fl::filesystem::systemCalls(), and what the standard file streams read and write, and strikes one of
// them. fsync is logged and not carried out: what it is good for is seen in a Disk. One at a time, and
// one thread.
class WatchedSystem {
public:
    enum class FileSystem {
        Current,
        Sharing,  // shares blocks
        Older,    // has no unnamed files, does not copy inside the kernel, cannot refuse to replace
        Linkless,  // an older one that has no hard links and no locks either
    };

    explicit WatchedSystem(FileSystem fileSystem = FileSystem::Current);
    ~WatchedSystem();
    WatchedSystem(const WatchedSystem&) = delete;
    WatchedSystem& operator=(const WatchedSystem&) = delete;

    // Call `number` (from 1) will be struck. `interfere` is run just before it for Kind::Interferes.
    void strike(std::size_t number, const Fault& fault, std::function<void()> interfere = {});
    // Null while it has not been made.
    const Call* struck() const noexcept;
    const std::vector<Call>& calls() const noexcept { return calls_; }

    // What happens to the call that is made now: its fault, or null. For the replaced calls.
    const Fault* begin(std::string_view call);
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

// A directory on a disk, to which the calls of a save are applied one by one: as the running system
// sees it, and what of that is sure to be found after a power failure.
class Disk {
public:
    void add(const std::string& name, ino_t inode, const std::string& content);
    void apply(const Call& call);

    static constexpr const char* kNothing = "(no such file)";
    std::string content(const std::string& name) const;
    // All that may be found under `name` after a power failure now: what has not been made durable,
    // contents and names, is lost or not.
    std::set<std::string> contentsAfterPowerLoss(const std::string& name) const;

private:
    using Names = std::map<std::string, ino_t>;
    using Contents = std::map<ino_t, std::string>;
    static std::string find(const Names& names, const Contents& contents, const std::string& name);

    Names names_, durableNames_;
    Contents contents_, durableContents_;
};

}  // namespace test_support
