#pragma once

#include <hvarray/Array.hpp>
#include <hvarray/Inspection.hpp>
