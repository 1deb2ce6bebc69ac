/* What the host needs of a C library for Visual C++, which is not available here. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif
int printf(const char* format, ...);
#ifdef __cplusplus
}
#endif
