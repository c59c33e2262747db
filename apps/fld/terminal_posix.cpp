#include "terminal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fld_host
{

// ---- standard input, output and error ----

bool fill_standard_files()
{
    const bool has_output = fcntl(STDOUT_FILENO, F_GETFD) >= 0;
    for (int file = 0; file >= 0 && file <= STDERR_FILENO;) file = open("/dev/null", O_RDWR);
    return has_output;
}

static std::string kept_output;

// Where the C library hands over what a library has printed.
static ssize_t keep_output(void* /*cookie*/, const char* text, size_t size)
{
    kept_output.append(text, size);
    keep_end(kept_output);
    return static_cast<ssize_t>(size);
}

FILE* divert_standard_output()
{
    const int results = dup(STDOUT_FILENO);
    FILE* stream = results < 0 ? nullptr : fdopen(results, "w");
    // For whatever does not print through `stdout`.
    if (!stream || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
    cookie_io_functions_t functions = {};
    functions.write = keep_output;
    FILE* messages = fopencookie(nullptr, "w", functions);
    if (!messages) throw std::system_error(errno, std::generic_category(), "standard output");
    stdout = messages;
    return stream;
}

std::string take_kept_output()
{
    (void)fflush(stdout);
    return std::exchange(kept_output, {});
}

// ---- the terminal ----

size_t terminal_width(FILE* stream)
{
    winsize size = {};
    const int file = fileno(stream);
    if (!isatty(file)) return 0;
    const bool known = ioctl(file, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : 80;
}

bool can_clear_lines()
{
    const char* const terminal = getenv("TERM");
    return terminal && strcmp(terminal, "dumb") != 0;
}

// ---- whoever stops the program ----

static std::atomic<bool> stopped;

static void stop(int /*signal*/)
{
    stopped = true;
}

void stop_when_interrupted()
{
    (void)std::signal(SIGINT, stop);
}

void stop_when_ended()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) (void)std::signal(signal, stop);
    (void)std::signal(SIGXFSZ, SIG_IGN);
}

bool is_stopped()
{
    return stopped;
}

} // namespace fld_host

int main(int argc, char** argv)
{
    return fld_host::run_program(argc, argv);
}
