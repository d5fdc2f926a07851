#pragma once

/// Marks what the shared library exports; everything else is hidden.
#define KORV_COMMON_API __attribute__((visibility("default")))
