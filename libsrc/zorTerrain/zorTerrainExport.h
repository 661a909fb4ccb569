// Symbol visibility of the plug-in: everything is hidden but the entry function and
// the classes a host may use directly.
#pragma once

#if defined(__GNUC__)
#define ZOR_TERRAIN_EXPORT __attribute__((visibility("default")))
#else
#define ZOR_TERRAIN_EXPORT
#endif
