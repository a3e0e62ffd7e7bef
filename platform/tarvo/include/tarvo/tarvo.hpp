#pragma once

// The class system. A host needs ClassSystem.hpp. A native module registers a namespace
// (Namespace.hpp), whose definer adds class descriptions (COSClassInfo.hpp, HandleClassInfo.hpp)
// with method descriptions (TarvoMethod.hpp) for native objects (Wrappable.hpp).

#include <tarvo/Attributes.hpp>
#include <tarvo/BindingRegistry.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/ClassSystem.hpp>
#include <tarvo/DataTypes.hpp>
#include <tarvo/Errors.hpp>
#include <tarvo/HandleClassInfo.hpp>
#include <tarvo/InternedString.hpp>
#include <tarvo/Namespace.hpp>
#include <tarvo/SelfPointer.hpp>
#include <tarvo/TarvoMethod.hpp>
#include <tarvo/Wrappable.hpp>
