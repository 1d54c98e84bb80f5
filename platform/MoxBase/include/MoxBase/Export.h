// The mark of what a shared library shows: everything else is hidden.
#pragma once

#define MOX_PUBLIC __attribute__((visibility("default")))
