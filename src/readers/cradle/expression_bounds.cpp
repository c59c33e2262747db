#include "readers/cradle/expression_bounds.h"

#include "readers/cradle/expression_tree.h"

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cstdint>

constexpr int MOST_POSITIONS = 512;
constexpr int MOST_STATES = 512;
constexpr int STATE_SLOTS = 2 * MOST_STATES;

// What a twentieth of a second and a few megabytes allow.
constexpr double MOST_STEPS = 200000;
constexpr double MOST_MET = 300;
constexpr double MOST_MERGED = 2000000;

using Nodes = std::bitset<MOST_NODES>;
using Positions = std::bitset<MOST_POSITIONS>;

// ---- the automaton that the platform makes of the tree ----

// What the platform knows between two characters of a name.
struct State {
    Positions matched; // by the last character
    bool after_newline;
    double size; // nodes met on all ways from there
};

struct Automaton {
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

// ---- compiling ----

// Tells every part what follows it, from the whole to its parts, and gives the number of nodes that
// the platform meets: it walks from every node, and for an anchor copies all that it meets, to walk
// from each copy once more.
static double link_nodes()
{
    double steps = 0;
    expression_tree.nodes[expression_tree.node_count - 1].next = NO_NODE;
    expression_tree.nodes[expression_tree.node_count - 1].steps_after = 1;
    for (int i = expression_tree.node_count - 1; i >= 0; --i) {
        Node& node = expression_tree.nodes[i];
        const double walk = node.steps + node.ways * node.steps_after;
        node.steps_from = walk;
        steps += walk;
        if (is_anchor(node)) steps += walk * walk;
        if (node.kind == NodeKind::sequence) {
            const Node& right = expression_tree.nodes[node.right];
            expression_tree.nodes[node.left].next = right.entry;
            expression_tree.nodes[node.left].steps_after =
                right.steps + right.ways * node.steps_after;
        } else if (node.kind == NodeKind::choice) {
            expression_tree.nodes[node.left].next = node.next;
            expression_tree.nodes[node.left].steps_after = node.steps_after;
        } else if (node.kind == NodeKind::repetition) {
            expression_tree.nodes[node.left].next = i;
            expression_tree.nodes[node.left].steps_after = walk;
        }
        if (node.kind == NodeKind::sequence || node.kind == NodeKind::choice) {
            expression_tree.nodes[node.right].next = node.next;
            expression_tree.nodes[node.right].steps_after = node.steps_after;
        }
    }
    return steps;
}

// False when there are too many.
static bool number_positions()
{
    automaton.position_count = 0;
    int begins = 0;
    std::fill(std::begin(automaton.rows), std::end(automaton.rows), Positions());
    for (int i = 0; i < expression_tree.node_count; ++i) {
        Node& node = expression_tree.nodes[i];
        begins += node.kind == NodeKind::begin;
        if (node.kind != NodeKind::character) continue;
        if (automaton.position_count == MOST_POSITIONS) return false;
        node.position = automaton.position_count++;
        automaton.position_nodes[node.position] = i;
        for (size_t byte = 1; byte < 256; ++byte) {
            if (expression_tree.sets[node.bytes][byte]) {
                automaton.rows[byte][static_cast<size_t>(node.position)] = true;
            }
        }
    }
    automaton.begins_again = begins > 1;
    automaton.newline_row = automaton.rows[size_t{'\n'}];
    // The end of a name is no byte: its row is free.
    automaton.row_count = 0;
    for (const Positions& row : automaton.rows) {
        Positions* const end = automaton.rows + automaton.row_count;
        if (row.any() && std::find(automaton.rows, end, row) == end) {
            automaton.rows[automaton.row_count++] = row;
        }
    }
    return true;
}

// ---- matching ----

// All ways from somewhere, up to the next character. The platform takes a '^' behind a new line for
// passable, and a '$' before one.
struct Walk {
    bool passes_begin, passes_end;
    Nodes met;
    Positions positions; // of the characters that can be next
    bool ends;           // the expression can end, here or together with the name
    double size;         // nodes met, with the copies that anchors make
    int height;
    int stack[MOST_NODES]; // met, and still to be gone on from
};

static void meet(int node, Walk* walk)
{
    if (node == NO_NODE) {
        walk->ends = true;
    } else if (!walk->met[static_cast<size_t>(node)]) {
        walk->met[static_cast<size_t>(node)] = true;
        walk->stack[walk->height++] = node;
    }
}

static void go_on(const Node& node, Walk* walk)
{
    if (node.kind != NodeKind::nothing) walk->size += is_anchor(node) ? node.steps_from : 1;
    if (node.kind == NodeKind::character) {
        walk->positions[static_cast<size_t>(node.position)] = true;
        return;
    }
    if (node.kind == NodeKind::begin && !walk->passes_begin) return;
    if (node.kind == NodeKind::end) {
        walk->ends = true;
        if (!walk->passes_end) return;
    }
    if (node.kind == NodeKind::choice || node.kind == NodeKind::repetition) {
        meet(expression_tree.nodes[node.left].entry, walk);
    }
    meet(node.kind == NodeKind::choice ? expression_tree.nodes[node.right].entry : node.next, walk);
}

static void finish(Walk* walk)
{
    while (walk->height > 0) go_on(expression_tree.nodes[walk->stack[--walk->height]], walk);
}

static void walk_from_start(bool passes_begin, bool passes_end, Walk* walk)
{
    *walk = {passes_begin, passes_end, {}, {}, false, 0, 0, {}};
    meet(expression_tree.nodes[expression_tree.node_count - 1].entry, walk);
    finish(walk);
}

static void walk_on(const Positions& matched, bool passes_begin, bool passes_end, Walk* walk)
{
    *walk = {passes_begin, passes_end, {}, {}, false, 0, 0, {}};
    for (int i = 0; i < automaton.position_count; ++i) {
        if (!matched[static_cast<size_t>(i)]) continue;
        meet(expression_tree.nodes[automaton.position_nodes[i]].next, walk);
    }
    finish(walk);
}

static size_t slot_of(const Positions& matched, bool after_newline)
{
    uint64_t mixed = after_newline ? 1 : 0;
    for (const uint64_t word : std::bit_cast<std::array<uint64_t, MOST_POSITIONS / 64>>(matched)) {
        mixed = (mixed ^ word) * 0x9E3779B97F4A7C15U;
        mixed ^= mixed >> 29;
    }
    return mixed % STATE_SLOTS;
}

// Counts the step to a state, and the state when it is new; false when there are too many.
static bool enter_state(const Positions& matched, bool after_newline)
{
    if (matched.none()) return true;
    size_t slot = slot_of(matched, after_newline);
    const State* state = nullptr;
    for (; !state && automaton.state_slots[slot] != 0; slot = (slot + 1) % STATE_SLOTS) {
        const State& other = automaton.states[automaton.state_slots[slot] - 1];
        if (other.matched == matched && other.after_newline == after_newline) state = &other;
    }
    if (!state) {
        if (automaton.state_count == MOST_STATES) return false;
        static Walk walk{};
        walk_on(matched, true, true, &walk);
        automaton.states[automaton.state_count] = {matched, after_newline, walk.size};
        state = &automaton.states[automaton.state_count++];
        automaton.state_slots[slot] = static_cast<int16_t>(automaton.state_count);
        if (state->size > MOST_MET) return false;
    }
    automaton.merged += static_cast<double>(matched.count()) * state->size;
    return automaton.merged <= MOST_MERGED;
}

// `lines` is the walk that passes a '$'.
static bool enter_states_behind(const Walk& walk, const Walk& lines)
{
    for (int row = 0; row < automaton.row_count; ++row) {
        if (!enter_state(walk.positions & automaton.rows[row], false)) return false;
    }
    return enter_state(lines.positions & automaton.newline_row, automaton.begins_again);
}

// Whether all states, and what it takes to make them, are within bounds.
static bool states_are_few()
{
    static Walk walk{}, lines{};
    automaton.state_count = 0;
    automaton.merged = 0;
    std::fill(std::begin(automaton.state_slots), std::end(automaton.state_slots), int16_t{0});
    walk_from_start(true, false, &walk);
    walk_from_start(true, true, &lines);
    bool are_few = enter_states_behind(walk, lines);
    for (int i = 0; are_few && i < automaton.state_count; ++i) {
        const State& state = automaton.states[i];
        walk_on(state.matched, state.after_newline, false, &walk);
        walk_on(state.matched, state.after_newline, true, &lines);
        are_few = enter_states_behind(walk, lines);
    }
    return are_few;
}

// ---- all of it ----

ExpressionBounds expression_bounds(const char* text)
{
    read_expression(text);
    ExpressionBounds bounds{false, false, expression_tree.is_balanced};
    if (expression_tree.failed || !(link_nodes() <= MOST_STEPS) || !number_positions())
        return bounds;
    static Walk walk{};
    walk_from_start(false, false, &walk);
    bounds.begins_at_once = walk.positions.none() && !walk.ends;
    bounds.are_kept = states_are_few();
    return bounds;
}
