// A regular expression as a tree, read as the platform reads it.
#pragma once

#include <bitset>

constexpr int MOST_NODES = 2048;

// The expression has no more characters than this.
constexpr int MAX_BOUNDED_LENGTH = 263;

using Bytes = std::bitset<256>;

enum class NodeKind {
    nothing,
    character, // any one of a set
    begin,     // '^'
    end,       // '$'
    sequence,
    choice,
    repetition // any number of times
};

constexpr int NO_NODE = -1;

// The tree stands in an array, every node behind its operands: a part of it, with all that belongs
// to it, is a range, and can be copied as one. All but sequences are nodes of the automaton too.
struct Node {
    NodeKind kind;
    int left, right; // operands, or NO_NODE
    int entry;       // the node of the automaton where this part begins
    int bytes;       // of a character, the number of its set

    // Nodes met on all ways through this part without reading a character, and how many of these
    // ways come out of it.
    double steps, ways;

    // Known when the whole expression is: the node behind this part, and the nodes met on all ways
    // from there, and from this part.
    int next;
    double steps_after;
    double steps_from;
    int position; // of a character, counted through the expression
};

[[nodiscard]] inline bool is_anchor(const Node& node)
{
    return node.kind == NodeKind::begin || node.kind == NodeKind::end;
}

struct ExpressionTree {
    bool failed;      // it is no expression, or has too many nodes
    bool is_balanced; // no ')' without its '('
    int node_count;   // the last node is the whole
    Node nodes[MOST_NODES];
    int set_count;
    Bytes sets[MAX_BOUNDED_LENGTH];
};

// The one that was read last.
extern ExpressionTree expression_tree;

// What the platform refuses may pass, but nothing gets another meaning.
void read_expression(const char* text);
