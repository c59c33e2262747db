#include "readers/cradle/series_expression.h"

#include "readers/cradle/expression_bounds.h"
#include "readers/cradle/platform_expression.h"

#include <cstdio>
#include <cstring>

static ExpressionTree tree;

SeriesExpression::~SeriesExpression()
{
    if (is_compiled) release_platform_expression();
}

// What can match anywhere in a name is made to match from its beginning: the platform would go
// through a name once for each of its characters.
static bool compile_anchored(const char* text)
{
    char anchored[MAX_TREE_TEXT + 1];
    const int length = snprintf(anchored, sizeof anchored, "^.*(%s)", text);
    return length <= MAX_TREE_TEXT && tree.is_balanced && read_expression(anchored, &tree) &&
           expression_bounds(tree).are_kept && compile_platform_expression(anchored);
}

bool compile_series_expression(const char* text, SeriesExpression* expression)
{
    if (strlen(text) > MAX_EXPRESSION_LENGTH || !read_expression(text, &tree)) return false;
    const ExpressionBounds bounds = expression_bounds(tree);
    if (bounds.are_kept) {
        expression->is_compiled =
            bounds.begins_at_once ? compile_platform_expression(text) : compile_anchored(text);
    }
    return expression->is_compiled;
}

bool matches_series_expression(const SeriesExpression& expression, const char* name)
{
    return expression.is_compiled && matches_platform_expression(name);
}
