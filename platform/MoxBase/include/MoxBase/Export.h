// Marks the symbols that a shared library exports: all others are hidden.
#pragma once

#define MOX_PUBLIC __attribute__((visibility("default")))
