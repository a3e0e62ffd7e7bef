// Saves and reads while memory runs out.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <fl/SystemCalls.hpp>
#include <opc/Exception.hpp>
#include <opc/Package.hpp>
#include <opc/Streams.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <cerrno>
#include <functional>
#include <string_view>
#include <vector>

#include "platform/opc/src/zip/ZipWriter.hpp"
#include "tests/faults/FaultsTest.hpp"
#include "tests/support/AppPackage.hpp"

namespace faults {

using test_support::Memory;

namespace {

// Every allocation fails, alone or with all that follow.
class AllocationFaultTest : public FaultsTest {
protected:
    // Runs `operation` with one allocation after another failing; `check` is told whether it threw.
    // What is made at first use must be there already.
    void failEach(const std::function<void()>& operation, const std::function<void(bool)>& check) {
        for (const Memory then : test_support::kMemories)
            failEach(operation, check, then);
    }

    bool isCreation_ = false;
    std::size_t step_ = kStep;
    void (*failAllocation_)(std::size_t number, Memory then) = test_support::failAllocation;

private:
    void failEach(const std::function<void()>& operation, const std::function<void(bool)>& check,
                  Memory then) {
        for (std::size_t number = 1; !HasFailure(); number += step_) {
            SCOPED_TRACE("allocation " + std::to_string(number) +
                         (then == Memory::StaysExhausted ? " and all that follow" : ""));
            reset(isCreation_);
            const auto before = held();
            failAllocation_(number, then);
            const bool threw = throws(operation);
            const bool failed = test_support::allocationFailed();
            failAllocation_(0, then);
            EXPECT_EQ(held(), before);
            EXPECT_EQ(leftovers(), 0);
            check(threw);
            if (failed) continue;
            EXPECT_FALSE(threw);
            EXPECT_GT(number, 20u);
            return;
        }
    }
};

class SaveAllocationTest : public AllocationFaultTest,
                           public testing::WithParamInterface<SaveOperation> {};

TEST_P(SaveAllocationTest, LeavesTheOldFileOrTheNew) {
    isCreation_ = GetParam().isCreation;
    if (GetParam().isTool) step_ = 13;  // most of its allocations are those of the command line
    if (GetParam().usesThreads) failAllocation_ = test_support::failAllocationOfAny;
    reset(isCreation_);
    const std::string before = content();
    GetParam().run(app(), inputs_);
    const std::string after = content();
    std::set<std::string> states{before, after};
    failEach([&] { GetParam().run(app(), inputs_); },
             [&](bool threw) {
                 // The tool may fail after its save, when it says what it has done.
                 if (!threw || (GetParam().saves == 1 && !GetParam().isTool)) {
                     EXPECT_TRUE(content() == (threw ? before : after));
                 }
                 states.insert(content());
             });
    EXPECT_LE(states.size(), GetParam().saves + 1);
}

INSTANTIATE_TEST_SUITE_P(Save, SaveAllocationTest, testing::ValuesIn(saveOperations()),
                         nameOf<SaveOperation>);

class ReadAllocationTest : public AllocationFaultTest,
                           public testing::WithParamInterface<ReadOperation> {};

TEST_P(ReadAllocationTest, ThrowsOrIsRight) {
    const std::string expected = GetParam().run(app(), inputs_, scratch());
    if (GetParam().usesThreads) failAllocation_ = test_support::failAllocationOfAny;
    failEach([&] { EXPECT_EQ(GetParam().run(app(), inputs_, scratch()), expected); },
             [&](bool) { EXPECT_EQ(content(), example_); });
}

// A setter that fails has changed nothing, or the writer saves nothing any more.
TEST_F(AllocationFaultTest, SavesNothingThatASetterLeftHalfDone) {
    using namespace appserialization;
    const auto set = [](auto value) {
        AppMetadata metadata;
        metadata.setName(ustring(value));
        metadata.setAppType(ustring(value));
        return metadata;
    };
    const std::string whole = test_support::goodPackage().bytes();
    const struct {
        const char* name;
        std::string app;
        std::function<void(AppFileWriter&)> set;
    } rows[] = {
        {"metadata", whole, [&](auto& writer) { writer.setAppMetadata(set(u"new")); }},
        {"screenshot of the same format", whole,
         [](auto& writer) {
             writer.setAppScreenshot({1, 2, 3}, u"png");
         }},
        {"screenshot of another format", whole,
         [](auto& writer) {
             writer.setAppScreenshot({1, 2, 3}, u"gif");
         }},
        {"model of an app without one",
         test_support::goodPackage()
             .without(u"/lumenforge/appModel.kvd")
             .withoutRelationships(test_support::kModelType)
             .bytes(),
         [&](auto& writer) { writer.setAppModelFromFile(inputs_.model); }},
    };
    for (const auto& row : rows) {
        for (const Memory then : test_support::kMemories) {
            for (std::size_t number = 1; !HasFailure(); number += kStep) {
                SCOPED_TRACE(row.name + std::string(", allocation ") + std::to_string(number));
                work_.write(kApp, row.app);
                AppFileWriter writer(app(), false);
                test_support::failAllocation(number, then);
                const bool threw = throws([&] { row.set(writer); });
                const bool failed = test_support::allocationFailed();
                test_support::failAllocation(0);
                if (!failed) break;
                if (!threw) continue;
                throws([&] { writer.close(); });
                EXPECT_TRUE(content() == row.app);
            }
        }
    }
}

TEST_F(AllocationFaultTest, MakesNothingInAPackageThatNobodyIsGiven) {
    using namespace opc::model;
    const opc::zippackage::ZipPhysicalPackage zip(app(), true);
    Package package(zip);
    package.open(opc::interfaces::OpenMode::Edit);
    const PartName name(u"/made/by/nobody.bin");
    const ContentType type(u"application/x-made");
    const StandardPartInfo info(1, 0);
    const auto relationships = package.getRelationships().size();
    const struct {
        const char* what;
        std::function<void()> make;
        std::function<bool()> isThere;
        std::function<void()> takeBack;
    } rows[] = {
        {"part", [&] { package.createPart(name, type, info); },
         [&] { return package.hasPart(name); }, [&] { package.deletePart(name); }},
        {"relationship", [&] { package.createInternalRelationship(u"t", name.getURI(), u"made"); },
         [&] { return package.getRelationships().size() != relationships; },
         [&] { package.deleteRelationship(u"made"); }},
    };
    for (const auto& row : rows) {
        for (const Memory then : test_support::kMemories) {
            bool failed = true;
            for (std::size_t number = 1; failed && !HasFailure(); ++number) {
                SCOPED_TRACE(row.what + std::string(", allocation ") + std::to_string(number));
                test_support::failAllocation(number, then);
                const bool threw = throws([&] { row.make(); });
                failed = test_support::allocationFailed();
                test_support::failAllocation(0);
                EXPECT_EQ(threw, failed);
                EXPECT_EQ(row.isThere(), !failed);
            }
            row.takeBack();
        }
    }
    package.close();
    EXPECT_TRUE(content() == example_);
}

TEST_F(AllocationFaultTest, TakesBackALargeItemWithNeitherMemoryNorDisk) {
    using fl::filesystem::systemCalls;
    opc::zip::ZipWriter writer(fl::filesystem::path(app()), nullptr, true);
    auto stream = writer.set("large", {.deflate = false});
    stream->write(std::vector<std::byte>(std::size_t{2} << 20));
    systemCalls().ftruncate = [](int, off_t) {
        errno = EIO;
        return -1;
    };
    test_support::failAllocation(1, Memory::StaysExhausted);
    stream.reset();
    EXPECT_TRUE(test_support::allocationFailed());
    test_support::failAllocation(0);
}

// Processes that have used nothing yet.
class FirstUseAllocationTest : public RepeatableTest {
protected:
    enum Answer { kSurvived, kEnough, kWrong };

    // What comes of `operation` when allocations fail, and then of another try with memory.
    template <class Operation>
    static Answer answer(std::size_t number, Memory then, Operation operation) {
        test_support::failAllocation(number, then);
        const bool threw = throws(operation);
        const bool failed = test_support::allocationFailed();
        test_support::failAllocation(0);
        if (threw && !failed) return kWrong;
        try {
            operation();
        } catch (const opc::Exception& failure) {
            // Where a library below the XML library lacked memory, nothing else helps.
            const std::string_view message = failure.what();
            return failed && message.ends_with("start the program again") ? kSurvived : kWrong;
        }
        return failed ? kSurvived : kEnough;
    }

    template <class Operation>
    void failEach(std::size_t step, Operation operation) const {
        for (const Memory then : test_support::kMemories) {
            for (std::size_t number = 1;; number += step) {
                work_.write(kApp, example_);
                const int status = statusOf([&] { return answer(number, then, operation); });
                ASSERT_TRUE(WIFEXITED(status)) << number << " ended with " << status;
                ASSERT_LT(WEXITSTATUS(status), kWrong) << number;
                if (WEXITSTATUS(status) == kEnough) break;
            }
        }
    }

    // Made by no library of ours.
    const std::string example_ = test_support::goodPackage().bytes();
};

TEST_F(FirstUseAllocationTest, FailsAndWorksLater) {
    const auto app = work_.name(kApp);
    failEach(kStep, [&] { appserialization::AppFileReader(app).getAppMetadata(); });
    // Most are those of the libraries below the XML library.
    failEach(37, [&] {
        appserialization::AppMetadata record;
        record.setName(std::u16string(u"Edited"));
        appserialization::AppFileWriter writer(app, false);
        writer.setAppMetadata(record);
        writer.close();
    });
}

INSTANTIATE_TEST_SUITE_P(Read, ReadAllocationTest, testing::ValuesIn(readOperations()),
                         nameOf<ReadOperation>);

}  // namespace
}  // namespace faults
