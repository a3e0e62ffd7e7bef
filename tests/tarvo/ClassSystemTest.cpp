#include <tarvo/tarvo.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <new>
#include <thread>
#include <utility>

#include <hvarray/hvarray.hpp>
#include <messages/HostError.hpp>

namespace {

using matrix::adopt;
using matrix::ArrayPtr;
using matrix::detail::do_create_cell;
using matrix::detail::noninlined::hv_array_api::hvCreateString_UTF16;
using tarvo::factory::MethodAttributes;
using tarvo::factory::TarvoMethod;
using tarvo::factory::TarvoNamespace;
using tarvo::internal::makeInterned;

std::atomic<int> liveEchoes{0};
class Echo;
Echo* lastEcho = nullptr;
std::atomic<int> definerCalls{0};
bool definerFails = false;

// Keeps the text that it was made with, and gives it back.
class Echo final : public tarvo::factory::full::Wrappable {
public:
    Echo() { ++liveEchoes; }
    ~Echo() override {
        tarvo::factory::full::retract(*this);
        --liveEchoes;
    }
    void construct(const foundation::ustring& text) {
        if (text == u"bad") throw std::runtime_error("bad text");
        if (text == u"leaves") lastEcho = this;
        text_ = text;
    }
    tarvo::factory::hvArrayProxy text() const { return adopt(hvCreateString_UTF16(text_.c_str())); }

private:
    foundation::ustring text_;
};

template <class Native, bool Abstract>
class EchoInfo final : public tarvo::factory::HandleClassInfo<Native, Abstract> {
public:
    using tarvo::factory::HandleClassInfo<Native, Abstract>::HandleClassInfo;

protected:
    void defineMethods(tarvo::MethodList& methods) const override {
        using namespace tarvo::factory;
        detail::initStringDataTypes();
        const auto statically = MethodAttributes::forConstructor();
        methods.push_back(std::make_unique<TarvoMethod>(
            this->getFullName(), statically,
            createSignatureImpl(statically, {makeInterned("TarvoFactoryString scalar")},
                                {makeInterned("handle")}),
            newOperator<Native>(*this)));
        methods.push_back(std::make_unique<TarvoMethod>(
            makeInterned("text"), MethodAttributes::forMethod(),
            createSignatureImpl({}, {}, {makeInterned("char")}), memberFunction(&Native::text)));
    }
};

class Other final : public tarvo::factory::full::Wrappable {
public:
    void construct(const foundation::ustring&) {}
    tarvo::factory::hvArrayProxy text() const { return nullptr; }
};

void defineTest(TarvoNamespace& toDefine) {
    ++definerCalls;
    toDefine.addClass(std::make_unique<EchoInfo<Echo, false>>(makeInterned("Echo"), "Echoes"));
    if (definerFails) throw std::bad_alloc();
    toDefine.addClass(std::make_unique<EchoInfo<Other, false>>(makeInterned("Other"), ""));
    toDefine.addClass(std::make_unique<EchoInfo<Echo, true>>(makeInterned("Idea"), ""));
}

ArrayPtr construct(const char* fullName, const char16_t* content = u"hello") {
    const ArrayPtr input = adopt(hvCreateString_UTF16(content));
    const hvArray_tag* const inputs[] = {input.get()};
    return tarvo::construct(fullName, 1, inputs).at(0);
}

std::u16string echo(const ArrayPtr& handle) {
    const hvArray_tag* const inputs[] = {handle.get()};
    return std::u16string(matrix::textOf(*tarvo::callMethod("test.Echo", "text", 0, inputs).at(0)));
}

std::string errorOf(const std::function<void()>& call) {
    try {
        call();
        return "no error";
    } catch (const messages::HostError& error) {
        return error.message().identifier() + ": " + error.what();
    }
}

class ClassSystem : public testing::Test {
protected:
    void SetUp() override {
        definerCalls = 0;
        definerFails = false;
        tarvo::factory::registerTarvoNamespace("test", defineTest);
    }
    void TearDown() override {
        tarvo::unregisterTarvoNamespace("test");
        EXPECT_EQ(tarvo::boundObjectCount(), 0u);
        EXPECT_EQ(matrix::liveArrayCount(), 0u);
        EXPECT_EQ(liveEchoes, 0);
    }
};

TEST_F(ClassSystem, RunsADefinerOnFirstUseAndAgainOnlyIfItFailed) {
    EXPECT_EQ(definerCalls, 0);
    definerFails = true;
    EXPECT_THROW(tarvo::findClass("test.Echo"), std::bad_alloc);
    definerFails = false;
    ASSERT_NE(tarvo::findClass("test.Echo"), nullptr);
    EXPECT_EQ(tarvo::findNamespace("test")->getClasses().size(), 3u);
    EXPECT_EQ(definerCalls, 2);
}

// Each of these namespaces uses the other one while it is being defined.
TEST_F(ClassSystem, RefusesDefinitionsThatGoInACircle) {
    const auto useRight = [](TarvoNamespace&) { tarvo::findNamespace("right"); };
    const auto useLeft = [](TarvoNamespace&) { tarvo::findNamespace("left"); };
    tarvo::factory::registerTarvoNamespace("left", useRight);
    tarvo::factory::registerTarvoNamespace("right", useLeft);
    const auto use = [](const char* name) {
        EXPECT_THAT([&] { tarvo::findNamespace(name); },
                    testing::ThrowsMessage<tarvo::RegistrationError>(testing::StartsWith(
                        std::string(name) + ": its definition uses what it is defining")));
    };
    for (int round = 0; round < 100; ++round) {
        std::thread other(use, "left");
        use("right");
        other.join();
    }
    tarvo::unregisterTarvoNamespace("left");
    tarvo::unregisterTarvoNamespace("right");
}

TEST_F(ClassSystem, RefusesASecondMeaningOfAName) {
    EXPECT_NO_THROW(tarvo::factory::registerTarvoNamespace("test", defineTest));
    EXPECT_THROW(tarvo::factory::registerTarvoNamespace("test", [](TarvoNamespace&) {}),
                 tarvo::RegistrationError);
    TarvoNamespace again(makeInterned("again"));
    defineTest(again);
    EXPECT_THROW(defineTest(again), tarvo::RegistrationError);
}

TEST_F(ClassSystem, ADestroyedObjectLeavesItsHandlesInvalid) {
    const ArrayPtr handle = construct("test.Echo");
    EXPECT_TRUE(tarvo::isValidHandle(*handle));
    tarvo::destroyObject(*handle);
    tarvo::destroyObject(*handle);
    EXPECT_EQ(liveEchoes, 0);
    EXPECT_FALSE(tarvo::isValidHandle(*handle));
    EXPECT_EQ(errorOf([&] { echo(handle); }), "DestroyedObject: The object has been destroyed.");
}

TEST_F(ClassSystem, AnObjectThatRetractsItselfLeavesItsHandlesInvalid) {
    const ArrayPtr handle = construct("test.Echo", u"leaves");
    tarvo::factory::full::retract(*lastEcho);
    EXPECT_FALSE(tarvo::isValidHandle(*handle));
    EXPECT_EQ(errorOf([&] { echo(handle); }), "DestroyedObject: The object has been destroyed.");
    delete std::exchange(lastEcho, nullptr);
    EXPECT_EQ(tarvo::boundObjectCount(), 0u);
}

TEST_F(ClassSystem, UnregisteringDestroysTheObjectsOfItsClassesOnly) {
    tarvo::factory::registerTarvoNamespace("test.inner", defineTest);
    const ArrayPtr handle = construct("test.Echo");
    {
        const ArrayPtr inner = construct("test.inner.Echo");
        EXPECT_TRUE(tarvo::unregisterTarvoNamespace("test"));
        EXPECT_FALSE(tarvo::unregisterTarvoNamespace("test"));
        EXPECT_FALSE(tarvo::isValidHandle(*handle));
        EXPECT_TRUE(tarvo::isValidHandle(*inner));
    }
    EXPECT_TRUE(tarvo::unregisterTarvoNamespace("test.inner"));
    EXPECT_EQ(errorOf([&] { echo(handle); }), "UndefinedClass: There is no class 'test.Echo'.");
}

TEST_F(ClassSystem, HostCodeCannotBreakACall) {
    const ArrayPtr handle = construct("test.Echo");
    const ArrayPtr other = construct("test.Other");
    const ArrayPtr cell = adopt(do_create_cell({}));
    const ArrayPtr square = adopt(matrix::createChar(std::vector<std::size_t>{2, 2}, u"abcd"));
    using List = std::vector<const hvArray_tag*>;
    const auto create = [](const char* fullName, List inputs) {
        return errorOf([&] { tarvo::construct(fullName, 1, inputs); });
    };
    const auto call = [](const char* method, List inputs) {
        return errorOf([&] { tarvo::callMethod("test.Echo", method, 1, inputs); });
    };
    EXPECT_EQ(create("test.Idea", {square.get()}),
              "AbstractClass: The class 'test.Idea' is abstract and has no objects of its own.");
    EXPECT_EQ(create("test.Echo", {}),
              "WrongNumberOfInputs: 'test.Echo' was called with 0 inputs; it takes 1.");
    EXPECT_EQ(create("test.Echo", {square.get()}),
              "WrongInputType: Input 1 of 'test.Echo' must be a text; it is a 2x2 char.");
    EXPECT_EQ(create("test.Echo", {nullptr}),
              "WrongInputType: Input 1 of 'test.Echo' must be a text; it is nothing.");
    EXPECT_EQ(call("size", {handle.get()}),
              "UndefinedMethod: The class 'test.Echo' has no method 'size'.");
    EXPECT_EQ(call("text", {cell.get()}),
              "WrongInputType: Input 1 of 'text' must be an object; it is a 0x0 cell.");
    EXPECT_EQ(call("text", {other.get()}),
              "ForeignObject: The object belongs to another class than the method.");
    EXPECT_THROW(construct("test.Echo", u"bad"), std::runtime_error);
    EXPECT_EQ(liveEchoes, 1) << "a failed constructor leaves nothing";
    EXPECT_EQ(errorOf([&] { tarvo::factory::extractString(*cell); }),
              "NotAText: Expected a row of characters, got a 0x0 cell.");
}

TEST_F(ClassSystem, ServesDistinctObjectsOnDistinctThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round) {
                const ArrayPtr handle = construct("test.Echo");
                EXPECT_EQ(echo(handle), u"hello");
                if (round % 2 == 0) tarvo::destroyObject(*handle);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(definerCalls, 1);
}

}  // namespace
