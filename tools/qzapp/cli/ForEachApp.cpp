#include "tools/qzapp/cli/ForEachApp.hpp"

#include <foundation/Threads.hpp>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "app/AppFolder.hpp"
#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"

namespace qzapp {
namespace {

// As many named files are opened at the start. If there are more, each is opened when its turn
// comes, so that there are enough descriptors.
constexpr std::size_t kMostOpened = 32;

// A file that was opened at the start, or the reason why it could not be.
struct Opened {
    std::optional<FileName> file;
    std::exception_ptr failure;
};

// A name on the command line and the files that it stands for: itself, or what a folder holds.
struct Named {
    std::string name;
    std::vector<std::string> files;
    bool isListed;                 // it is a folder
    std::optional<Opened> opened;  // if it was opened at the start
    bool isWhole = true;           // nothing below it was reported as unreadable
};

// Receives the name of what could not be read, and the reason.
using Fail = std::function<void(const std::string&, const Error&)>;

void list(Named& folder, const Fail& fail) {
    const auto failHere = [&](const std::string& name, const Error& reason) {
        fail(name, reason);
        folder.isWhole = false;
    };
    try {
        AppsBelow apps = appsBelow(fileArgument(folder.name));
        for (const Unlisted& unlisted : apps.unlisted)
            failHere(unlisted.name, Error(unlisted.name, unlisted.reason));
        folder.files = std::move(apps.files);
    } catch (const Error& e) {
        folder.files.clear();
        failHere(folder.name, e);
    }
}

bool isListed(const std::string& name) {
    return name != kStandardStream && isFolder(name);
}

std::vector<Named> filesOf(const std::vector<std::string>& names, const Fail& fail) {
    std::vector<Named> all;
    for (const std::string& name : names) {
        all.push_back({name, {name}, isListed(name), std::nullopt});
        if (all.back().isListed) list(all.back(), fail);
    }
    return all;
}

std::size_t countOf(const std::vector<Named>& all) {
    std::size_t count = 0;
    for (const Named& named : all)
        count += named.files.size();
    return count;
}

Opened openNow(const std::string& name) {
    try {
        return {appArgument(name), nullptr};
    } catch (const Error&) {
        return {std::nullopt, std::current_exception()};
    }
}

// Takes the file's stamp anew: what was written to it before its turn does no harm.
FileName heldAnew(const Opened& opened) {
    if (opened.failure) std::rethrow_exception(opened.failure);
    return opened.file->isStream ? *opened.file : hold(*opened.file);
}

// Opens the named files, and confines this process to them and what is in the named folders.
// Standard input is copied now, because the cage allows no file for the copy.
void confineTo(std::vector<Named>& all) {
    Cage cage;
    for (Named& named : all) {
        if (named.isListed) {
            letRead(cage, named.name, named.files);
        } else if (all.size() <= kMostOpened || named.name == kStandardStream) {
            named.opened = openNow(named.name);
        } else {
            cage.mayRead(named.name);
        }
    }
    cage.enter();
}

// Visits all files on several threads, and shows and reports on the calling one.
class Visit {
public:
    Visit(const std::vector<Named>& all, const AppVisitor& visitor, const Fail& fail,
          std::atomic<std::uint64_t>& done)
        : all_(&all), visitor_(&visitor), fail_(&fail), done_(&done) {}

    // Returns whether every answer's status was kDone.
    bool run() {
        foundation::threads::Pipeline pipeline;
        pipeline.slots = kSlotsPerThread * foundation::threads::limit();
        slots_.resize(pipeline.slots);
        pipeline.feed = [this](std::size_t slot) { return feed(slots_[slot]); };
        pipeline.work = [this](std::size_t slot) { visit(slots_[slot]); };
        pipeline.take = [this](std::size_t slot) { take(slots_[slot]); };
        pipeline.run();
        return isDone_;
    }

private:
    // One file takes much longer than another.
    static constexpr std::size_t kSlotsPerThread = 4;

    struct Slot {
        const Named* named = nullptr;
        std::size_t file = 0;          // also of a folder that holds none
        std::optional<Answer> answer;  // none if a file of a folder is not an app after all
        std::optional<Error> error;
    };

    bool feed(Slot& slot) {
        if (named_ == all_->size()) return false;
        const Named& named = (*all_)[named_];
        slot = {&named, file_++, std::nullopt, std::nullopt};
        if (file_ >= named.files.size()) {
            ++named_;
            file_ = 0;
        }
        return true;
    }

    static std::optional<FileName> open(const Named& named, const std::string& name) {
        if (named.isListed) return openListed(name);
        return named.opened ? heldAnew(*named.opened) : appArgument(name);
    }

    void visit(Slot& slot) const {
        if (slot.named->files.empty()) return;
        const std::string& name = slot.named->files[slot.file];
        try {
            const auto file = open(*slot.named, name);
            if (file) slot.answer = visitor_->ask(*file);
        } catch (const Error& e) {
            slot.error = e;
        }
    }

    void take(const Slot& slot) {
        if (slot.file == 0) hasApp_ = false;
        hasApp_ |= slot.answer || slot.error;
        if (slot.error) (*fail_)(slot.named->files[slot.file], *slot.error);
        if (slot.answer) {
            visitor_->show(*slot.answer);
            isDone_ &= slot.answer->status == kDone;
        }
        ++*done_;
        const bool isLast = slot.file + 1 >= slot.named->files.size();
        if (isLast && !hasApp_ && slot.named->isWhole) {
            const std::string& folder = slot.named->name;
            (*fail_)(folder, Error(folder, "holds no app; check the name"));
        }
    }

    const std::vector<Named>* all_;
    const AppVisitor* visitor_;
    const Fail* fail_;
    std::atomic<std::uint64_t>* done_;
    std::vector<Slot> slots_;
    std::size_t named_ = 0, file_ = 0;  // the next file
    bool hasApp_ = false;               // in the folder that is being printed
    bool isDone_ = true;
};

}  // namespace

void letRead(Cage& cage, const std::string& folder, const std::vector<std::string>& files) {
    cage.mayRead(folder);
    for (const std::string& file : files) {
        std::error_code ignored;
        if (std::filesystem::is_symlink(file, ignored)) cage.mayRead(file);
    }
}

int forEachApp(const std::vector<std::string>& names, const AppVisitor& visitor) {
    int status = kDone;
    const auto fail = [&](const std::string& name, const Error& reason) {
        report(reason.what());
        status = kFailed;
        visitor.fail(name == kStandardStream ? kStandardInputName : name, reason.text());
    };
    std::vector<Named> all = filesOf(names, fail);
    confineTo(all);
    const std::size_t count = countOf(all);
    std::atomic<std::uint64_t> done = 0;
    // No bar for a single file, whose count would say nothing, or if the output itself shows the
    // progress.
    const ProgressBar progress(count == 1 || outputIsTerminal() ? 0 : count, done);
    if (!Visit(all, visitor, fail, done).run()) status = kFailed;
    return status;
}

bool maybeSeveral(const std::vector<std::string>& names) {
    return names.size() > 1 || std::ranges::any_of(names, isListed);
}

}  // namespace qzapp
