#include "readers/cradle/platform_expression.h"

#include <locale.h>
#include <regex.h>

static regex_t compiled;

// For the characters of another locale the platform does much more with every name.
bool compile_platform_expression(const char* text)
{
    const locale_t bytes = newlocale(LC_ALL_MASK, "C", nullptr);
    if (!bytes) return false;
    const locale_t before = uselocale(bytes);
    const bool is_compiled = regcomp(&compiled, text, REG_EXTENDED | REG_NOSUB) == 0;
    (void)uselocale(before);
    freelocale(bytes);
    return is_compiled;
}

bool matches_platform_expression(const char* name)
{
    return regexec(&compiled, name, 0, nullptr, 0) == 0;
}

void release_platform_expression()
{
    regfree(&compiled);
}
