#include "readers/cradle/expression_bounds.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

// What a few milliseconds and megabytes allow.
constexpr double MOST_STEPS = 200000;   // of all walks when an expression is compiled
constexpr int MOST_POSITIONS = 512;     // characters of the expression
constexpr int MOST_STATES = 512;        // of the automaton
constexpr double MOST_MET = 300;        // nodes that belong to a state
constexpr double MOST_MERGED = 2000000; // nodes of what all states are put together from
constexpr int STATE_SLOTS = 2 * MOST_STATES;

using Nodes = std::bitset<MAX_EXPRESSION_NODES>;
using Positions = std::bitset<MOST_POSITIONS>;

constexpr int NO_NODE = -1;

// A node of the tree as one of the automaton, which all but sequences are.
struct Place {
    // Of the part of the expression that ends with the node: where it begins, the nodes met on all
    // ways through it without reading a character, and how many of these ways come out of it.
    int entry;
    double steps, ways;

    // The node that follows the part, and the nodes met on all ways from there.
    int next;
    double steps_after;

    int position; // of a character, counted through the expression
};

// What the platform knows between two characters of a name.
struct State {
    Positions matched; // by the last character
    bool after_newline;
    double size; // nodes met on all ways to the next character
};

struct Automaton {
    const ExpressionTree* tree;
    Place places[MAX_EXPRESSION_NODES];

    int position_count;
    int position_nodes[MOST_POSITIONS];
    // The positions that take a byte; bytes that make no difference to any have one row.
    int row_count;
    Positions rows[256];
    Positions newline_row;
    bool begins_again; // has another '^' than the first

    int state_count;
    State states[MOST_STATES];
    int16_t state_slots[STATE_SLOTS]; // numbers from 1
    double merged;
};

static Automaton automaton;

static double steps_from(const Place& place)
{
    return place.steps + place.ways * place.steps_after;
}

static bool has_two_ways(const Node& node)
{
    return node.kind == NodeKind::choice || node.kind == NodeKind::optional ||
           node.kind == NodeKind::repetition;
}

// ---- compiling ----

// From the parts to the whole.
static void measure_parts()
{
    for (int i = 0; i < automaton.tree->node_count; ++i) {
        const Node& node = automaton.tree->nodes[i];
        const Place &a = automaton.places[node.left], &b = automaton.places[node.right];
        Place& place = automaton.places[i];
        place = {i, 1, 1, NO_NODE, 1, 0};
        switch (node.kind) {
        case NodeKind::nothing: place.steps = 2; break;
        case NodeKind::character: place.ways = 0; break;
        case NodeKind::begin:
        case NodeKind::end: break;
        case NodeKind::sequence:
            place = {a.entry, a.steps + a.ways * b.steps, a.ways * b.ways, NO_NODE, 1, 0};
            break;
        case NodeKind::choice:
            place = {i, 1 + a.steps + b.steps, a.ways + b.ways, NO_NODE, 1, 0};
            break;
        case NodeKind::optional: place = {i, 1 + a.steps, 1 + a.ways, NO_NODE, 1, 0}; break;
        // A way through what is repeated leads back to the repetition.
        case NodeKind::repetition:
            place = {i, 1 + a.steps + a.ways, 1 + a.ways, NO_NODE, 1, 0};
            break;
        }
    }
}

// From the whole to the parts. Gives the number of nodes that the platform meets: it walks from
// every node; of what it meets behind an anchor it makes copies, and walks from each of them.
static double link_parts()
{
    double steps = 0;
    for (int i = automaton.tree->node_count - 1; i >= 0; --i) {
        const Node& node = automaton.tree->nodes[i];
        const Place& place = automaton.places[i];
        const double here = steps_from(place);
        steps += is_anchor(node) ? here + here * here : here;
        Place &a = automaton.places[node.left], &b = automaton.places[node.right];
        switch (node.kind) {
        case NodeKind::sequence:
            b.next = place.next;
            b.steps_after = place.steps_after;
            a.next = b.entry;
            a.steps_after = steps_from(b);
            break;
        case NodeKind::choice:
            b.next = place.next;
            b.steps_after = place.steps_after;
            [[fallthrough]];
        case NodeKind::optional:
            a.next = place.next;
            a.steps_after = place.steps_after;
            break;
        case NodeKind::repetition:
            a.next = i;
            a.steps_after = here;
            break;
        default: break;
        }
    }
    return steps;
}

// ---- matching ----

// False when there are too many.
static bool number_positions()
{
    const ExpressionTree& tree = *automaton.tree;
    automaton.position_count = 0;
    std::fill(std::begin(automaton.rows), std::end(automaton.rows), Positions());
    for (int i = 0; i < tree.node_count; ++i) {
        if (tree.nodes[i].kind != NodeKind::character) continue;
        if (automaton.position_count == MOST_POSITIONS) return false;
        const int position = automaton.position_count++;
        automaton.places[i].position = position;
        automaton.position_nodes[position] = i;
        for (size_t byte = 1; byte < 256; ++byte) {
            automaton.rows[byte][static_cast<size_t>(position)] =
                tree.sets[tree.nodes[i].set][byte];
        }
    }
    return true;
}

static void unite_rows()
{
    automaton.newline_row = automaton.rows[size_t{'\n'}];
    automaton.row_count = 0;
    // The end of a name is no byte: the first row is free.
    for (const Positions& row : automaton.rows) {
        Positions* const end = automaton.rows + automaton.row_count;
        if (row.none() || std::find(automaton.rows, end, row) != end) continue;
        automaton.rows[automaton.row_count++] = row;
    }
}

// All ways from somewhere to the next character. The platform lets a '^' pass after a new line, and
// a '$' before one.
struct Walk {
    bool passes_begin, passes_end;
    Nodes met;
    Positions positions; // of the characters that can be next
    bool ends;           // the expression can end, here or together with the name
    double size;         // nodes met, with the copies that anchors make
};

// Nodes met from which the walk is still to go on.
static int met_nodes[MAX_EXPRESSION_NODES];
static int met_count;

static void meet(int node, Walk* walk)
{
    if (node == NO_NODE) {
        walk->ends = true;
    } else if (!walk->met[static_cast<size_t>(node)]) {
        walk->met[static_cast<size_t>(node)] = true;
        met_nodes[met_count++] = node;
    }
}

static void go_on_from(int i, Walk* walk)
{
    const Node& node = automaton.tree->nodes[i];
    const Place& place = automaton.places[i];
    walk->size += is_anchor(node) ? steps_from(place) : 1;
    if (node.kind == NodeKind::character) {
        walk->positions[static_cast<size_t>(place.position)] = true;
        return;
    }
    walk->ends = walk->ends || node.kind == NodeKind::end;
    if (node.kind == NodeKind::begin && !walk->passes_begin) return;
    if (node.kind == NodeKind::end && !walk->passes_end) return;
    if (has_two_ways(node)) meet(automaton.places[node.left].entry, walk);
    meet(node.kind == NodeKind::choice ? automaton.places[node.right].entry : place.next, walk);
}

static void finish(Walk* walk)
{
    while (met_count > 0) go_on_from(met_nodes[--met_count], walk);
}

static Walk walk_from_start(bool passes_begin, bool passes_end)
{
    Walk walk{passes_begin, passes_end, {}, {}, false, 0};
    meet(automaton.places[automaton.tree->node_count - 1].entry, &walk);
    finish(&walk);
    return walk;
}

static Walk walk_on(const Positions& matched, bool passes_begin, bool passes_end)
{
    Walk walk{passes_begin, passes_end, {}, {}, false, 0};
    for (int i = 0; i < automaton.position_count; ++i) {
        if (!matched[static_cast<size_t>(i)]) continue;
        meet(automaton.places[automaton.position_nodes[i]].next, &walk);
    }
    finish(&walk);
    return walk;
}

static size_t slot_hash(const Positions& matched, bool after_newline)
{
    uint64_t mixed = after_newline ? 1 : 0;
    for (const uint64_t word : std::bit_cast<std::array<uint64_t, MOST_POSITIONS / 64>>(matched)) {
        mixed = (mixed ^ word) * 0x9E3779B97F4A7C15U;
        mixed ^= mixed >> 29;
    }
    return mixed;
}

// The slot that holds the state, or the free one where it belongs. There always is one.
static int16_t* find_slot(const Positions& matched, bool after_newline)
{
    size_t slot = slot_hash(matched, after_newline) % STATE_SLOTS;
    for (; automaton.state_slots[slot] != 0; slot = (slot + 1) % STATE_SLOTS) {
        const State& state = automaton.states[automaton.state_slots[slot] - 1];
        if (state.matched == matched && state.after_newline == after_newline) break;
    }
    return automaton.state_slots + slot;
}

// Counts a step to a state, and the state when it is new; false when there are too many.
static bool enter_state(const Positions& matched, bool after_newline)
{
    if (matched.none()) return true;
    int16_t* const slot = find_slot(matched, after_newline);
    if (*slot == 0) {
        if (automaton.state_count == MOST_STATES) return false;
        const double size = walk_on(matched, true, true).size;
        automaton.states[automaton.state_count++] = {matched, after_newline, size};
        *slot = static_cast<int16_t>(automaton.state_count);
    }
    const double size = automaton.states[*slot - 1].size;
    automaton.merged += static_cast<double>(matched.count()) * size;
    return size <= MOST_MET && automaton.merged <= MOST_MERGED;
}

// The second walk passes a '$', which only a new line allows.
static bool enter_states_behind(const Walk& walk, const Walk& newline_walk)
{
    for (int row = 0; row < automaton.row_count; ++row) {
        if (!enter_state(walk.positions & automaton.rows[row], false)) return false;
    }
    return enter_state(newline_walk.positions & automaton.newline_row, automaton.begins_again);
}

// Whether all states, and what it takes to make them, are within bounds.
static bool states_are_few()
{
    automaton.state_count = 0;
    automaton.merged = 0;
    std::fill(std::begin(automaton.state_slots), std::end(automaton.state_slots), int16_t{0});
    bool are_few = enter_states_behind(walk_from_start(true, false), walk_from_start(true, true));
    for (int i = 0; are_few && i < automaton.state_count; ++i) {
        const State& state = automaton.states[i];
        are_few = enter_states_behind(walk_on(state.matched, state.after_newline, false),
                                      walk_on(state.matched, state.after_newline, true));
    }
    return are_few;
}

ExpressionBounds expression_bounds(const ExpressionTree& tree)
{
    automaton.tree = &tree;
    measure_parts();
    // Also false for what is no number.
    if (!(link_parts() <= MOST_STEPS) || !number_positions()) return {false, false};
    unite_rows();
    automaton.begins_again =
        std::count_if(tree.nodes, tree.nodes + tree.node_count,
                      [](const Node& node) { return node.kind == NodeKind::begin; }) > 1;
    const Walk walk = walk_from_start(false, false);
    return {states_are_few(), walk.positions.none() && !walk.ends};
}
