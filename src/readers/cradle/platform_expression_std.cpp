// For systems without POSIX' functions: std::regex. This file is built with exceptions; none leaves
// it.
//
// It takes less than glibc does, and so refuses names that are series on Linux: a ')' without its
// '(', counts without a lower end such as {,3}, ranges in brackets that reach beyond ASCII, and
// those that begin with [.x.]. And [=a=] stands for 'A' too. All else is judged alike.
#include "readers/cradle/platform_expression.h"

#include <locale>
#include <new>
#include <optional>
#include <regex>

static std::optional<std::regex> compiled;

// A search that goes through a name once, with all places that it has reached in the expression at
// the same time. The usual one tries one way after the other, and there may be more ways than
// anyone can wait for.
constexpr auto OPTIONS = std::regex_constants::extended | std::regex_constants::nosubs |
                         std::regex_constants::__polynomial;

bool compile_platform_expression(const char* text)
try {
    std::regex expression;
    expression.imbue(std::locale::classic());
    expression.assign(text, OPTIONS);
    compiled = std::move(expression);
    return true;
} catch (const std::regex_error&) {
    return false;
} catch (const std::bad_alloc&) {
    return false;
}

bool matches_platform_expression(const char* name)
try {
    return compiled && std::regex_search(name, *compiled);
} catch (const std::regex_error&) {
    return false;
} catch (const std::bad_alloc&) {
    return false;
}

void release_platform_expression()
{
    compiled.reset();
}
