#pragma once

// Marks what the shared library shows to its callers; everything else stays hidden.
#if defined(_WIN32) && !defined(CLIENT_IO_STATIC)
#if defined(CLIENT_IO_BUILDING)
#define CLIENT_IO_EXPORT __declspec(dllexport)
#else
#define CLIENT_IO_EXPORT __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define CLIENT_IO_EXPORT __attribute__((visibility("default")))
#else
#define CLIENT_IO_EXPORT
#endif
