// The regular expression that the names of a series match, an extended one of POSIX.
#pragma once

// The process has one; it is released when its owner goes out of scope.
struct SeriesExpression {
    bool is_compiled = false;

    SeriesExpression() = default;
    SeriesExpression(const SeriesExpression&) = delete;
    SeriesExpression& operator=(const SeriesExpression&) = delete;
    ~SeriesExpression();
};

constexpr int MAX_EXPRESSION_LENGTH = 255;

// False for what is no expression, is too long, or could take much time or memory to compile or to
// match, whatever the names.
[[nodiscard]] bool compile_series_expression(const char* text, SeriesExpression* expression);

// `name` has up to 255 characters.
[[nodiscard]] bool matches_series_expression(const SeriesExpression& expression, const char* name);
