#pragma once

// Marks what the platform's shared object exports.
#define PLATFORM_API __attribute__((visibility("default")))
