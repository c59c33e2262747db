// Extended regular expressions of POSIX, by the library that the system has for them. Bytes are
// compared, whatever the host's locale. One source file for each such library stands behind it.
#pragma once

// The process holds one at a time. False for what is no expression, and without memory. The caller
// has bounded what the expression can cost.
[[nodiscard]] bool compile_platform_expression(const char* text);

// Whether the expression matches some part of the name; false without memory.
[[nodiscard]] bool matches_platform_expression(const char* name);

void release_platform_expression();
