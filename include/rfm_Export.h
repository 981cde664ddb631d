#pragma once

/// Marks the classes and functions that the shared library shows. Everything else stays inside it.
#define RFM_EXPORT __attribute__((visibility("default")))
