// What a regular expression can cost the platform, counted before it is handed over.
//
// The platform turns an expression into an automaton. While it does, it walks all ways that lead
// from one character of the expression to the next, and repetitions within repetitions multiply
// them. While it matches, it makes a state of every combination of places that a name can have
// reached at once, and keeps it. Either can double with every few characters of the expression.
#pragma once

#include "readers/cradle/expression_tree.h"

struct ExpressionBounds {
    bool are_kept;
    bool begins_at_once; // it matches nothing but from the first character of a name on
};

[[nodiscard]] ExpressionBounds expression_bounds(const ExpressionTree& tree);
