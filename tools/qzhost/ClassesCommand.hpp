#pragma once

#include <string>

namespace qzhost {

// Everything that modules have registered: each namespace with its classes, their methods, and the
// attributes of both. As JSON or as text for people.
std::string listClassesAsJson();
std::string listClasses();

}  // namespace qzhost
