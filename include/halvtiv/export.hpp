#pragma once

/// Marks what the shared library exports; everything else stays inside it.
#if defined(_WIN32)
#if defined(HALVTIV_BUILDING)
#define HALVTIV_API __declspec(dllexport)
#else
#define HALVTIV_API __declspec(dllimport)
#endif
#else
#define HALVTIV_API __attribute__((visibility("default")))
#endif
