// An extended regular expression of POSIX as a tree, read as the platform reads it in the "C"
// locale, with all that is repeated written out.
#pragma once

#include <bitset>

enum class NodeKind {
    nothing,
    character, // any one of a set
    begin,     // '^'
    end,       // '$'
    sequence,
    choice,
    optional,
    repetition // any number of times
};

struct Node {
    NodeKind kind;
    int left, right; // operands; an optional and a repetition have a left one only
    int set;         // of a character
};

[[nodiscard]] inline bool is_anchor(const Node& node)
{
    return node.kind == NodeKind::begin || node.kind == NodeKind::end;
}

constexpr int MAX_EXPRESSION_NODES = 2048;
constexpr int MAX_TREE_TEXT = 260;

// Every node stands behind its operands, so that each part of the expression is a range of nodes,
// and the whole is the last one.
struct ExpressionTree {
    int node_count;
    Node nodes[MAX_EXPRESSION_NODES];
    int set_count;
    std::bitset<256> sets[MAX_TREE_TEXT];
    bool is_balanced; // no ')' without its '('
};

// `text` has at most MAX_TREE_TEXT characters, a backslash only before one that stands for itself.
// False for what is no expression, has too many nodes, or repeats a '^' or '$'.
[[nodiscard]] bool read_expression(const char* text, ExpressionTree* tree);
