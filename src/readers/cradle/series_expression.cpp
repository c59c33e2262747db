#include "readers/cradle/series_expression.h"

#include "readers/cradle/expression_bounds.h"

#include <cstdio>
#include <cstring>
#include <locale.h>
#include <regex.h>

static regex_t compiled;
static ExpressionTree tree;

SeriesExpression::~SeriesExpression()
{
    if (is_compiled) regfree(&compiled);
}

// Bytes are compared, whatever the host's locale: for the characters of another one the platform
// does much more with every name.
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

// What can match anywhere in a name is made to match from its beginning: the platform would go
// through a name once for each of its characters.
static bool compile_anchored(const char* text)
{
    char anchored[MAX_TREE_TEXT + 1];
    const int length = snprintf(anchored, sizeof anchored, "^.*(%s)", text);
    return length <= MAX_TREE_TEXT && tree.is_balanced && read_expression(anchored, &tree) &&
           expression_bounds(tree).are_kept && compile_bytes(anchored);
}

bool compile_series_expression(const char* text, SeriesExpression* expression)
{
    if (strlen(text) > MAX_EXPRESSION_LENGTH || !read_expression(text, &tree)) return false;
    const ExpressionBounds bounds = expression_bounds(tree);
    if (bounds.are_kept) {
        expression->is_compiled =
            bounds.begins_at_once ? compile_bytes(text) : compile_anchored(text);
    }
    return expression->is_compiled;
}

bool matches_series_expression(const SeriesExpression& expression, const char* name)
{
    return expression.is_compiled && regexec(&compiled, name, 0, nullptr, 0) == 0;
}
