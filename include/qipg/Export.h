/// @file Export.h
/// Symbol visibility for the public API: the library is built with hidden visibility,
/// and only what carries QIPG_EXPORT is exported from libqipg.
#pragma once

/// Marks a declaration as part of the library's exported API.
#define QIPG_EXPORT __attribute__((visibility("default")))
