// The routines that tell the user what is wrong. Every message ends in a newline.
#pragma once

// Prints one message on the process's standard output.
[[gnu::format(printf, 1, 2)]] void print_diagnostic(const char* format, ...);

// The same on standard error, where the search for a series prints.
[[gnu::format(printf, 1, 2)]] void print_series_diagnostic(const char* format, ...);

// Takes the messages of both kinds instead; null: they are printed again.
using MessageSink = void(void* context, const char* text);
void send_messages_to(MessageSink* sink, void* context);
