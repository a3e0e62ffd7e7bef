#pragma once

// The headers of this library that a host's own code usually needs.

#include <foundation/Base64.hpp>
#include <foundation/Clock.hpp>
#include <foundation/Diagnostics.hpp>
#include <foundation/Exceptions.hpp>
#include <foundation/Immortal.hpp>
#include <foundation/ReleaseInfo.hpp>
#include <foundation/ustring.hpp>

#include <fl/FileDescriptor.hpp>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
