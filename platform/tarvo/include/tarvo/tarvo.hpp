#pragma once

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
