#include "readers/cradle/series_expression.h"

#include "readers/cradle/expression_bounds.h"
#include "readers/cradle/expression_tree.h"

#include <clocale>
#include <cstdio>
#include <cstring>
#include <regex.h>

static regex_t compiled;

// Bytes are compared, not characters of the host's locale, in which the platform is far slower and
// keeps more.
static bool compile_bytes(const char* text)
{
    const locale_t bytes = newlocale(LC_ALL_MASK, "C", nullptr);
    if (!bytes) return false;
    const locale_t before = uselocale(bytes);
    const bool is_compiled = regcomp(&compiled, text, REG_EXTENDED | REG_NOSUB) == 0;
    (void)uselocale(before);
    freelocale(bytes);
    return is_compiled;
}

SeriesExpression::~SeriesExpression()
{
    if (is_compiled) regfree(&compiled);
}

bool compile_series_expression(const char* text, SeriesExpression* expression)
{
    if (strlen(text) > MAX_EXPRESSION_LENGTH) return false;
    ExpressionBounds bounds = expression_bounds(text);
    char anchored[MAX_BOUNDED_LENGTH + 1];
    if (!bounds.begins_at_once && bounds.is_balanced) {
        // The platform would begin anew at each character of a name.
        (void)snprintf(anchored, sizeof anchored, "^.*(%s)", text);
        text = anchored;
        bounds = expression_bounds(text);
    }
    expression->is_compiled = bounds.are_kept && bounds.begins_at_once && compile_bytes(text);
    return expression->is_compiled;
}

bool matches_series_expression(const SeriesExpression& expression, const char* name)
{
    return expression.is_compiled && regexec(&compiled, name, 0, nullptr, 0) == 0;
}
