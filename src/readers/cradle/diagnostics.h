// The one routine that tells the user what is wrong.
#pragma once

// Prints one message on the process's standard output. Every message ends in a newline.
[[gnu::format(printf, 1, 2)]] void print_diagnostic(const char* format, ...);
