#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hvarray/hvarray.hpp>
#include <messages/HostError.hpp>
#include <tarvo/ClassSystem.hpp>

#include <stdexcept>
#include <string>

#include "tests/support/SmallStack.hpp"
#include "tests/support/TemporaryDirectory.hpp"

namespace {

using matrix::ArrayPtr;

constexpr const char* kNamespace = "lumenforge.internal.serialization";
constexpr const char* kClass = "lumenforge.internal.serialization.KAppMetadataReader";

class LoadedModule {
public:
    LoadedModule() : handle_(dlopen(QZ_MODULE_FILE, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) throw std::runtime_error(dlerror());
        call("KVInitialize_libqzappserialization");
    }
    ~LoadedModule() {
        tarvo::unregisterTarvoNamespace(kNamespace);
        call("KVTerminate_lumenforge_kvpkg_api");
        dlclose(handle_);
    }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

private:
    void call(const char* entryPoint) {
        reinterpret_cast<void (*)()>(dlsym(handle_, entryPoint))();
    }
    void* handle_;
};

bool isLoaded() {
    void* const handle = dlopen(QZ_MODULE_FILE, RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

ArrayPtr construct(const std::u16string& file) {
    using matrix::detail::noninlined::hv_array_api::hvCreateString_UTF16;
    const ArrayPtr name = matrix::adopt(hvCreateString_UTF16(file.c_str()));
    const hvArray_tag* const inputs[] = {name.get()};
    return tarvo::construct(kClass, 1, inputs).at(0);
}

void readOnce(const std::u16string& file) {
    const ArrayPtr handle = construct(file);
    const hvArray_tag* const inputs[] = {handle.get()};
    tarvo::callMethod(kClass, "readMetadata", 1, inputs);
    tarvo::callMethod(kClass, "readScreenshotAsBytes", 2, inputs);
}

class Module : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_FALSE(isLoaded());
        EXPECT_EQ(tarvo::boundObjectCount(), 0u);
        EXPECT_EQ(matrix::liveArrayCount(), 0u);
    }

    test_support::TemporaryDirectory directory_;
    const std::u16string file_ = directory_.write(
        "demo.k",
        "x = 1;\n%[app:thumbnail]{\n<Thumbnail>data:image/png;base64,AAEC</Thumbnail>\n%}\n");
};

TEST_F(Module, LoadsReadsOnASmallStackAndUnloadsAgainAndAgain) {
    for (int round = 0; round < 3; ++round) {
        const LoadedModule module;
        EXPECT_TRUE(isLoaded());
        test_support::onSmallStack([&] { readOnce(file_); });
        EXPECT_THROW(construct(u"missing.k"), messages::HostError);
    }
}

TEST_F(Module, AHandleMayOutliveTheModule) {
    ArrayPtr handle;
    {
        const LoadedModule module;
        handle = construct(file_);
    }
    EXPECT_FALSE(tarvo::isValidHandle(*handle));
    EXPECT_EQ(matrix::classNameOf(*handle), kClass);
}

}  // namespace
