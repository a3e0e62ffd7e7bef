#pragma once

// Marks the classes and functions that the shared library exports.
#define APPSERIALIZATION_API __attribute__((visibility("default")))
