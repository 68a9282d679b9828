// Symbol visibility for the public API: the library is built with hidden visibility,
// and only what carries QIPG_EXPORT is exported from libqipg.
#pragma once

#define QIPG_EXPORT __attribute__((visibility("default")))
