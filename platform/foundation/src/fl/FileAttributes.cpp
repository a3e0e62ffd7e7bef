#include <fl/FileAttributes.hpp>

#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <endian.h>
#include <fcntl.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <linux/types.h>
#include <sys/types.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

namespace fl::filesystem {

namespace {

constexpr const char* kAccessList = "system.posix_acl_access";
// How often readSized() asks again if the value has grown between asking for its size and reading
// it.
constexpr int kAttempts = 8;

// Whether the attribute belongs to the system's security rather than to the file's user. Such an
// attribute is copied only if the system permits it.
bool isOptional(std::string_view name) {
    return name.starts_with("security.") || name.starts_with("trusted.");
}

// Whether the attribute is a digest of the old content. With it, the system would refuse to open
// the new content.
bool describesContent(std::string_view name) {
    return name == "security.ima" || name == "security.evm";
}

// Reads a value of unknown size with a call that returns the size when it is given an empty buffer.
template <class Call>
std::string readSized(Call call, const std::string& what) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const ssize_t size = retryInterrupted([&] { return call(nullptr, 0); });
        if (size < 0) throwSystemError(errno, what);
        std::string value(static_cast<std::size_t>(size), '\0');
        if (value.empty()) return value;
        const ssize_t got = retryInterrupted([&] { return call(value.data(), value.size()); });
        if (got >= 0) return value.substr(0, static_cast<std::size_t>(got));
        if (errno != ERANGE) throwSystemError(errno, what);
    }
    throwSystemError(EBUSY, what);
}

std::set<std::string> attributeNames(const FileDescriptor& file) {
    std::string list;
    try {
        list = readSized(
            [&](char* buffer, std::size_t size) {
                return systemCalls().flistxattr(file.get(), buffer, size);
            },
            "cannot list the extended attributes");
    } catch (const std::system_error& error) {
        if (error.code().value() == ENOTSUP) return {};
        throw;
    }
    std::set<std::string> names;
    for (std::size_t at = 0; at < list.size();
         at += std::char_traits<char>::length(&list[at]) + 1) {
        names.insert(&list[at]);
    }
    return names;
}

struct stat statusOf(const FileDescriptor& file) {
    struct stat status {};
    if (retryInterrupted([&] { return systemCalls().fstat(file.get(), &status); }) < 0) {
        throwSystemError(errno, "cannot stat");
    }
    return status;
}

// What the owner and group of a new file are, compared with those of the file that it replaces.
struct Kept {
    bool owner = false;
    bool group = false;
};

// With another group, its members get the group's rights, and those of the old group the rights of
// all others. So both get what both had, and nobody gets more than before.
mode_t forAnotherGroup(mode_t mode) {
    const mode_t both = mode >> 3 & mode & 07;
    return (mode & ~mode_t{077}) | both << 3 | both;
}

// The same for an access list, as the system gives and takes it.
void cutForAnotherGroup(std::string& list) {
    const auto forEach = [&](auto visit) {
        for (std::size_t at = sizeof(posix_acl_xattr_header);
             at + sizeof(posix_acl_xattr_entry) <= list.size();
             at += sizeof(posix_acl_xattr_entry)) {
            posix_acl_xattr_entry entry;
            std::memcpy(&entry, &list[at], sizeof entry);
            visit(entry);
            std::memcpy(&list[at], &entry, sizeof entry);
        }
    };
    const auto isOne = [](const posix_acl_xattr_entry& entry) {
        return entry.e_tag == htole16(ACL_GROUP_OBJ) || entry.e_tag == htole16(ACL_OTHER);
    };
    __le16 both = 0xFFFF;
    forEach([&](posix_acl_xattr_entry& entry) {
        if (isOne(entry) || entry.e_tag == htole16(ACL_MASK)) both &= entry.e_perm;
    });
    forEach([&](posix_acl_xattr_entry& entry) {
        if (isOne(entry)) entry.e_perm = both;
    });
}

void copyAttribute(const FileDescriptor& from, FileDescriptor& to, const std::string& name,
                   const Kept& kept) {
    const std::string what = "cannot keep the extended attribute \"" + name + "\"";
    std::string value = readSized(
        [&](char* buffer, std::size_t size) {
            return systemCalls().fgetxattr(from.get(), name.c_str(), buffer, size);
        },
        what);
    if (name == kAccessList && !kept.group) cutForAnotherGroup(value);
    if (retryInterrupted([&] {
            return systemCalls().fsetxattr(to.get(), name.c_str(), value.data(), value.size(), 0);
        }) < 0) {
        throwSystemError(errno, what);
    }
}

void copyExtendedAttributes(const FileDescriptor& from, FileDescriptor& to, const Kept& kept) {
    const std::set<std::string> names = attributeNames(from);
    for (const std::string& name : names) {
        if (describesContent(name)) continue;
        try {
            copyAttribute(from, to, name, kept);
        } catch (const std::system_error&) {
            if (!isOptional(name)) throw;
        }
    }
    // A directory with a default access list has given the new file one, which the old file lacks.
    if (names.contains(kAccessList) || !attributeNames(to).contains(kAccessList)) return;
    if (retryInterrupted([&] { return systemCalls().fremovexattr(to.get(), kAccessList); }) < 0) {
        throwSystemError(errno, "cannot remove the access list that the directory gives new files");
    }
}

// Sets the owner and group as far as the system permits.
Kept copyOwner(const struct stat& wanted, FileDescriptor& file) {
    const auto change = [&](uid_t owner) {
        const int result = retryInterrupted(
            [&] { return systemCalls().fchown(file.get(), owner, wanted.st_gid); });
        // EINVAL: an owner that the user namespace does not know.
        if (result < 0 && errno != EPERM && errno != EINVAL) {
            throwSystemError(errno, "cannot keep the owner");
        }
        return result == 0;
    };
    if (change(wanted.st_uid)) return {.owner = true, .group = true};
    if (change(static_cast<uid_t>(-1))) return {.owner = false, .group = true};
    // The group may be right nevertheless. EINVAL: a group that the user namespace does not know,
    // and for which fstat() gives the same number as for others.
    const bool isKnown = errno == EPERM;
    return {.owner = false, .group = isKnown && statusOf(file).st_gid == wanted.st_gid};
}

}  // namespace

void copyAttributes(const FileDescriptor& from, FileDescriptor& to) {
    const struct stat wanted = statusOf(from);
    const Kept kept = copyOwner(wanted, to);
    mode_t mode = wanted.st_mode & 07777;
    // The set-user-ID and set-group-ID bits would give another owner's rights away.
    if (!kept.owner) mode &= 01777;
    if (!kept.group) mode = forAnotherGroup(mode);
    if (retryInterrupted([&] { return systemCalls().fchmod(to.get(), mode); }) < 0) {
        throwSystemError(errno, "cannot keep the mode");
    }
    copyExtendedAttributes(from, to, kept);
}

std::optional<struct stat> find(const FileDescriptor& directory, const std::string& name) {
    struct stat status {};
    if (retryInterrupted([&] {
            return systemCalls().fstatat(directory.get(), name.c_str(), &status,
                                         AT_SYMLINK_NOFOLLOW);
        }) == 0) {
        return status;
    }
    if (errno != ENOENT) throwSystemError(errno, "cannot stat");
    return std::nullopt;
}

}  // namespace fl::filesystem
