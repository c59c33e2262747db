#include "readers/cradle/diagnostics.h"

#include "readers/cradle/heap_array.h"
#include "ui/util/utf8wrap.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

static MessageSink* message_sink;
static void* sink_context;

void send_messages_to(MessageSink* sink, void* context)
{
    message_sink = sink;
    sink_context = context;
}

// Names of a file may be of any length; without memory for one the message is cut.
static void pass_to_sink(const char* format, va_list arguments)
{
    char text[512];
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    HeapArray<char> whole;
    if (length >= static_cast<int>(sizeof text)) whole = heap_array<char>(int64_t{length} + 1);
    if (whole) (void)vsnprintf(whole.get(), static_cast<size_t>(length) + 1, format, again);
    va_end(again);
    message_sink(sink_context, whole ? whole.get() : text);
}

static void say(utf8wrap::Output output, const char* format, va_list arguments)
{
    if (message_sink) {
        pass_to_sink(format, arguments);
    } else {
        utf8wrap::print(output, format, arguments);
    }
}

void print_diagnostic(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    say(utf8wrap::Output::standard, format, arguments);
    va_end(arguments);
}

void print_series_diagnostic(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    say(utf8wrap::Output::error, format, arguments);
    va_end(arguments);
}
