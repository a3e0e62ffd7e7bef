#pragma once

#include <opc/CoreProperties.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Exception.hpp>
#include <opc/FoundPackage.hpp>
#include <opc/ImageTypes.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <opc/PartName.hpp>
#include <opc/Relationship.hpp>
#include <opc/Repack.hpp>
#include <opc/Streams.hpp>
#include <opc/XercesHelper.hpp>
#include <opc/XmlElements.hpp>
#include <opc/ZipArchive.hpp>
#include <opc/ZipPhysicalPackage.hpp>
