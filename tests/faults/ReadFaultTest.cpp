// Reads while calls of the system fail, and reads damaged files.

#include <appserialization/AppFileWriter.hpp>
#include <opc/Exception.hpp>
#include <opc/ZipArchive.hpp>

#include <cerrno>

#include "tests/faults/FaultsTest.hpp"

namespace faults {
namespace {

using test_support::Fault;
using test_support::WatchedSystem;
using Kind = Fault::Kind;

class ReadFaultTest : public FaultsTest, public testing::WithParamInterface<ReadOperation> {
protected:
    // False when there are fewer calls than `number`.
    bool readsRightOrThrows(const Fault& fault, std::size_t number, const std::string& expected) {
        WatchedSystem system;
        system.strike(number, fault);
        const bool failed =
            throws([&] { EXPECT_EQ(GetParam().run(app(), inputs_, scratch()), expected); });
        if (system.struck() == nullptr) return false;
        const auto call = system.struck()->name;
        SCOPED_TRACE(call);
        if (fault.error == EIO || fault.error == EACCES) {
            EXPECT_EQ(failed, call != "close");
        }
        if (fault.error == EINTR || fault.kind == Kind::IsShort) {
            EXPECT_FALSE(failed);
        }
        return true;
    }
};

TEST_P(ReadFaultTest, ThrowsOrIsRightWhateverCallFails) {
    const std::string expected = GetParam().run(app(), inputs_, scratch());
    for (const Fault& fault :
         {Fault{"EIO", Kind::Fails, EIO}, Fault{"EACCES", Kind::Fails, EACCES},
          Fault{"EINTR", Kind::Fails, EINTR}, Fault{"a short read", Kind::IsShort, 0, "pread read"},
          Fault{"an early end", Kind::MovesNothing, 0, "pread"}}) {
        for (std::size_t number = 1;; ++number) {
            SCOPED_TRACE(std::string(fault.name) + " at call " + std::to_string(number));
            const auto before = held();
            const bool wasStruck = readsRightOrThrows(fault, number, expected);
            EXPECT_EQ(held(), before);
            if (HasFailure() || !wasStruck) break;
        }
    }
    EXPECT_EQ(content(), example_);
}

INSTANTIATE_TEST_SUITE_P(Read, ReadFaultTest, testing::ValuesIn(readOperations()),
                         nameOf<ReadOperation>);

class BitFlipTest : public FaultsTest {
protected:
    // A large model would have every bit of it tried.
    void makeSmall() {
        appserialization::AppFileWriter writer(app(), false);
        writer.setAppModelFromFile(inputs_.model);
        writer.close();
    }
};

TEST_F(BitFlipTest, IsNoticedOrChangesNothing) {
    makeSmall();
    const auto archive = opc::zip::ZipArchive::open(fl::filesystem::path(app()));
    // The item whose data a byte belongs to, or null.
    const auto itemAt = [&](std::size_t at) -> const opc::zip::ZipItem* {
        for (const auto& item : archive->items()) {
            if (at >= item.dataOffset && at < item.dataOffset + item.compressedSize) return &item;
        }
        return nullptr;
    };
    const std::string example = content();
    const std::string expected = readPackage(app());
    std::fstream stream(file(), std::ios::in | std::ios::out | std::ios::binary);
    const auto put = [&](std::size_t at, char byte) {
        stream.seekp(static_cast<std::streamoff>(at)).put(byte).flush();
    };
    std::size_t unnoticed = 0;  // in deflated data, of which some bits can be told in two ways
    for (std::size_t bit = 0; bit < example.size() * 8; bit += kStep) {
        const std::size_t at = bit / 8;
        const auto* const item = itemAt(at);
        put(at, static_cast<char>(example[at] ^ (1 << bit % 8)));
        bool wasNoticed = false;
        try {
            ASSERT_EQ(readPackage(app()), expected) << "bit " << bit;
        } catch (const opc::Exception&) {
            wasNoticed = true;
        }
        put(at, example[at]);
        if (item == nullptr || wasNoticed) continue;
        ASSERT_EQ(item->method, opc::zip::Method::Deflated) << "bit " << bit;
        ++unnoticed;
    }
    EXPECT_EQ(content(), example);
    EXPECT_LT(unnoticed, example.size() * 8 / kStep / 100);
}

}  // namespace
}  // namespace faults
