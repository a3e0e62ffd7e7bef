#pragma once

// Marks what the library exports.
#define APPSERIALIZATION_API __attribute__((visibility("default")))
