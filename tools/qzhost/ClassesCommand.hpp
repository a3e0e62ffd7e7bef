#pragma once

#include <string>

namespace qzhost {

// What modules have registered: every namespace with its classes, their methods, and the attributes
// of both. As JSON or for people.
std::string listClassesAsJson();
std::string listClasses();

}  // namespace qzhost
