#include "python/File.hpp"

#include <sys/mman.h>
#include <opc/Package.hpp>
#include <opc/PartName.hpp>

#include <cerrno>
#include <system_error>
#include <utility>

#include "app/AppContent.hpp"
#include "app/AppFolder.hpp"
#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "app/WithPackage.hpp"
#include "python/ObjectLock.hpp"

namespace qzapp::python {

namespace {

constexpr const char* kBytes = "<bytes>";

}  // namespace

std::size_t Stream::read(std::span<std::byte> buffer) {
    const ObjectLock lock(mutex_);
    if (failure_) std::rethrow_exception(failure_);
    try {
        return about(file_, [&] { return stream_->read(buffer); });
    } catch (...) {
        failure_ = std::current_exception();
        throw;
    }
}

FileName File::hold(const std::string& bytes) {
    return qzapp::hold(fileNamed(bytes));
}

appserialization::AppMetadataReader& File::reader() {
    if (!reader_) reader_ = openApp(name_);
    return *reader_;
}

void File::requireApp() {
    const ObjectLock lock(mutex_);
    reader();
}

appserialization::AppMetadata File::metadata() {
    const ObjectLock lock(mutex_);
    return about(name_, [&] { return reader().readMetadata(); });
}

appserialization::Screenshot File::screenshot() {
    const ObjectLock lock(mutex_);
    return readScreenshot(name_, reader());
}

std::shared_ptr<Stream> File::model() const {
    return std::make_shared<Stream>(name_, openModel(name_));
}

std::uint64_t File::modelSize() const {
    return qzapp::modelSize(name_);
}

std::vector<PartFacts> File::parts() const {
    return withPackage(name_, [](const opc::model::Package& package) {
        std::vector<PartFacts> parts;
        for (const opc::model::Part& part : package.getParts())
            parts.push_back({part.getName().toString(), part.getContentType().toString(),
                             part.size(), part.compressedSize()});
        return parts;
    });
}

std::shared_ptr<Stream> File::part(const foundation::ustring& name) const {
    return std::make_shared<Stream>(
        name_, withPackage(name_, [&](const opc::model::Package& package) {
            return package.getPart(opc::model::PartName(name)).getInputStream();
        }));
}

MemoryFile::MemoryFile() : file_(::memfd_create("qzapp", MFD_CLOEXEC)) {
    if (!file_) throw Error(kBytes, "no file in memory can be made", std::errc(errno));
}

void MemoryFile::append(std::span<const std::byte> bytes) {
    const ObjectLock lock(mutex_);
    requireOpen();
    about({kBytes, {}}, [&] { file_.writeAt(bytes, size_); });
    size_ += bytes.size();
}

std::shared_ptr<File> MemoryFile::app() {
    const ObjectLock lock(mutex_);
    requireOpen();
    const Form form = about({kBytes, {}}, [&] { return formOfContent(file_); });
    auto app = named(u"app" + extensionOf(form));
    if (form == Form::Text && !isTextApp(app->name())) {
        throw Error(kBytes,
                    "these bytes hold neither a package nor the sections of a text app; if they "
                    "are a path, give it as a str");
    }
    return app;
}

std::shared_ptr<File> MemoryFile::content() {
    const ObjectLock lock(mutex_);
    requireOpen();
    return named(u"content");
}

std::shared_ptr<File> MemoryFile::named(const foundation::ustring& name) {
    return about({kBytes, {}}, [&] {
        const auto stamp = file_.stamp();
        const auto held = std::make_shared<HeldFile>(HeldFile{std::move(file_), stamp});
        return std::make_shared<File>(FileName{kBytes, held->file.privateName(name), held, true});
    });
}

void MemoryFile::requireOpen() const {
    if (!file_) throw Error(kBytes, "these bytes have been handed on already");
}

}  // namespace qzapp::python
