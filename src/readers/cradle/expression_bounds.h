// What a regular expression can cost the platform, counted before it is handed over.
//
// The platform turns an expression into an automaton. While it does, it walks all ways that lead
// from one character of the expression to the next, and repetitions within repetitions multiply
// them. While it matches, it makes a state of every combination of places that a name can have
// reached at once, and keeps it. Either can double with every few characters of the expression.
#pragma once

struct ExpressionBounds {
    bool are_kept;       // false also for what is no expression
    bool begins_at_once; // matches nothing but from the first character of a name on
    bool is_balanced;    // no ')' without its '('
};

// The expression has at most MAX_BOUNDED_LENGTH characters; a backslash stands before a character
// that means itself.
[[nodiscard]] ExpressionBounds expression_bounds(const char* text);
