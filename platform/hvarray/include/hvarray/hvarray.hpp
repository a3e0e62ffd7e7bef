#pragma once

#include <hvarray/Array.hpp>       // IWYU pragma: export
#include <hvarray/Inspection.hpp>  // IWYU pragma: export
