#include "readers/cradle/expression_bounds.h"

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cstdint>

constexpr int MOST_NODES = 2048;
constexpr int MOST_POSITIONS = 512;
constexpr int MOST_STATES = 512;
constexpr int STATE_SLOTS = 2 * MOST_STATES;

// What a twentieth of a second and a few megabytes allow.
constexpr double MOST_STEPS = 200000;
constexpr double MOST_KEPT = 100000;
constexpr double MOST_MERGED = 2000000;

using Bytes = std::bitset<256>;
using Nodes = std::bitset<MOST_NODES>;
using Positions = std::bitset<MOST_POSITIONS>;

// ---- the expression as a tree, and as the automaton that the platform makes of it ----

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

// What the platform knows between two characters of a name.
struct State {
    Positions matched; // by the last character
    bool after_newline;
    double size; // nodes met on all ways from there
};

struct Model {
    const char* at; // what is still to be read of the expression
    bool failed;
    int depth; // of parentheses
    bool is_balanced;

    int node_count;
    Node nodes[MOST_NODES];
    int set_count;
    Bytes sets[MAX_BOUNDED_LENGTH];

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
    double kept, merged;
};

static Model model;

static int fail()
{
    model.failed = true;
    return 0;
}

static int add_node(const Node& node)
{
    if (model.node_count == MOST_NODES) return fail();
    model.nodes[model.node_count] = node;
    return model.node_count++;
}

static int add_leaf(NodeKind kind, double steps, double ways)
{
    return add_node({kind, NO_NODE, NO_NODE, model.node_count, 0, steps, ways, NO_NODE, 0, 0, 0});
}

static int add_character(const Bytes& bytes)
{
    const int leaf = add_leaf(NodeKind::character, 1, 0);
    model.nodes[leaf].bytes = model.set_count;
    model.sets[model.set_count++] = bytes;
    return leaf;
}

static int add_sequence(int left, int right)
{
    const Node &a = model.nodes[left], &b = model.nodes[right];
    return add_node({NodeKind::sequence, left, right, a.entry, 0, a.steps + a.ways * b.steps,
                     a.ways * b.ways, NO_NODE, 0, 0, 0});
}

static int add_choice(int left, int right)
{
    const Node &a = model.nodes[left], &b = model.nodes[right];
    return add_node({NodeKind::choice, left, right, model.node_count, 0, 1 + a.steps + b.steps,
                     a.ways + b.ways, NO_NODE, 0, 0, 0});
}

static int add_repetition(int repeated)
{
    const Node& a = model.nodes[repeated];
    return add_node({NodeKind::repetition, repeated, NO_NODE, model.node_count, 0,
                     1 + a.steps + a.ways, 1 + a.ways, NO_NODE, 0, 0, 0});
}

// The part that ends with node `last`, once more.
static int add_copy(int begin, int last)
{
    const int shift = model.node_count - begin;
    for (int i = begin; i <= last && !model.failed; ++i) {
        Node node = model.nodes[i];
        node.left += shift;
        node.right += shift;
        node.entry += shift;
        add_node(node);
    }
    return model.node_count - 1;
}

// ---- reading ----
//
// As the platform reads it. What it refuses may pass here, but nothing has another meaning.

constexpr int UNLIMITED = -1;
constexpr int MAX_COUNT = 32767;

static bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// A number, or UNLIMITED when there is none.
static int take_count()
{
    int count = is_digit(*model.at) ? 0 : UNLIMITED;
    for (; is_digit(*model.at); ++model.at) {
        count = std::min(count * 10 + (*model.at - '0'), MAX_COUNT + 1);
    }
    return count;
}

static bool takes(char c)
{
    if (*model.at != c) return false;
    ++model.at;
    return true;
}

// What stands in braces: {2}, {2,}, {,3}, {2,3} or {,}.
static bool take_counts(int* least, int* most)
{
    *least = *most = take_count();
    if (takes(',')) {
        *least = std::max(*least, 0);
        *most = take_count();
    }
    return takes('}') && *least >= 0 && (*most == UNLIMITED || *most >= *least);
}

static bool is_anchor(const Node& node)
{
    return node.kind == NodeKind::begin || node.kind == NodeKind::end;
}

// The part from node `begin` on, a number of times: x{2,4} is xx((x)?x)?, x{2,} and xx* are alike.
static int add_repeated(int begin, int least, int most)
{
    // The platform multiplies repeated anchors, and mistakes some.
    const Node *const first = model.nodes + begin, *const end = model.nodes + model.node_count;
    if (std::any_of(first, end, is_anchor)) return fail();
    if (most == 0) {
        model.node_count = begin;
        return add_leaf(NodeKind::nothing, 0, 1);
    }
    const int once = model.node_count - 1;
    int required = once;
    for (int i = 2; i <= least && !model.failed; ++i) {
        required = add_sequence(required, add_copy(begin, once));
    }
    if (least == most) return required;
    int optional = least > 0 ? add_copy(begin, once) : once;
    optional = most == UNLIMITED ? add_repetition(optional)
                                 : add_choice(optional, add_leaf(NodeKind::nothing, 0, 1));
    for (int i = least + 2; i <= most && !model.failed; ++i) {
        optional = add_sequence(optional, add_copy(begin, once));
        optional = add_choice(optional, add_leaf(NodeKind::nothing, 0, 1));
    }
    return least > 0 ? add_sequence(required, optional) : optional;
}

// A byte of a bracket expression, which may be written [.b.] or [=b=].
static int take_bracket_byte(bool* is_class)
{
    const char* const c = model.at;
    *is_class = c[0] == '[' && c[1] == '=';
    if (c[0] == '[' && (*is_class || c[1] == '.' || c[1] == ':')) {
        if (c[2] == '\0' || c[3] != c[1] || c[4] != ']') return fail();
        model.at += 5;
        return static_cast<unsigned char>(c[2]);
    }
    if (c[0] == '\0') return fail();
    ++model.at;
    return static_cast<unsigned char>(c[0]);
}

static void take_bracket_range(bool is_first, Bytes* bytes)
{
    // A '-' stands for itself at either end only.
    if (model.at[0] == '-' && model.at[1] != ']' && !is_first) fail();
    bool is_low_class = false, is_high_class = false;
    const int low = take_bracket_byte(&is_low_class);
    int high = low;
    if (!model.failed && model.at[0] == '-' && model.at[1] != ']') {
        ++model.at;
        high = take_bracket_byte(&is_high_class);
        if (is_low_class || is_high_class || high < low) fail();
    }
    for (int byte = low; byte <= high; ++byte) (*bytes)[static_cast<size_t>(byte)] = true;
}

static int take_bracket()
{
    Bytes bytes;
    const bool inverted = takes('^');
    bool is_first = true;
    for (; !model.failed && (is_first || *model.at != ']'); is_first = false) {
        take_bracket_range(is_first, &bytes);
    }
    if (model.failed) return 0;
    ++model.at;
    return add_character(inverted ? ~bytes : bytes);
}

static int take_choices();

static int take_group()
{
    if (takes(')')) return add_leaf(NodeKind::nothing, 2, 1);
    ++model.depth;
    const int inside = take_choices();
    --model.depth;
    return takes(')') ? inside : fail();
}

static int take_part()
{
    const char c = *model.at++;
    switch (c) {
    case '(': return take_group();
    case '[': return take_bracket();
    case '^': return add_leaf(NodeKind::begin, 1, 1);
    case '$': return add_leaf(NodeKind::end, 1, 1);
    case '.': return add_character(~Bytes());
    case '*':
    case '+':
    case '?':
    case '{': return fail();
    case ')': model.is_balanced = false; break;
    default: break;
    }
    Bytes bytes;
    bytes[static_cast<unsigned char>(c == '\\' ? *model.at++ : c)] = true;
    return add_character(bytes);
}

static int take_repeated_part()
{
    const int begin = model.node_count;
    int part = take_part();
    while (!model.failed) {
        int least = 0, most = UNLIMITED;
        if (takes('+')) {
            least = 1;
        } else if (takes('?')) {
            most = 1;
        } else if (takes('{')) {
            if (!take_counts(&least, &most)) return fail();
        } else if (!takes('*')) {
            break;
        }
        part = add_repeated(begin, least, most);
    }
    return part;
}

static bool ends_choice()
{
    return *model.at == '\0' || *model.at == '|' || (*model.at == ')' && model.depth > 0);
}

static int take_sequence()
{
    if (ends_choice()) return add_leaf(NodeKind::nothing, 0, 1);
    int sequence = take_repeated_part();
    while (!model.failed && !ends_choice()) {
        sequence = add_sequence(sequence, take_repeated_part());
    }
    return sequence;
}

static int take_choices()
{
    int choices = take_sequence();
    while (!model.failed && takes('|')) choices = add_choice(choices, take_sequence());
    return choices;
}

// ---- compiling ----

// Tells every part what follows it, from the whole to its parts, and gives the number of nodes that
// the platform meets: it walks from every node, and for an anchor copies all that it meets, to walk
// from each copy once more.
static double link_nodes()
{
    double steps = 0;
    model.nodes[model.node_count - 1].next = NO_NODE;
    model.nodes[model.node_count - 1].steps_after = 1;
    for (int i = model.node_count - 1; i >= 0; --i) {
        Node& node = model.nodes[i];
        const double walk = node.steps + node.ways * node.steps_after;
        node.steps_from = walk;
        steps += walk;
        if (is_anchor(node)) steps += walk * walk;
        if (node.kind == NodeKind::sequence) {
            const Node& right = model.nodes[node.right];
            model.nodes[node.left].next = right.entry;
            model.nodes[node.left].steps_after = right.steps + right.ways * node.steps_after;
        } else if (node.kind == NodeKind::choice) {
            model.nodes[node.left].next = node.next;
            model.nodes[node.left].steps_after = node.steps_after;
        } else if (node.kind == NodeKind::repetition) {
            model.nodes[node.left].next = i;
            model.nodes[node.left].steps_after = walk;
        }
        if (node.kind == NodeKind::sequence || node.kind == NodeKind::choice) {
            model.nodes[node.right].next = node.next;
            model.nodes[node.right].steps_after = node.steps_after;
        }
    }
    return steps;
}

// False when there are too many.
static bool number_positions()
{
    model.position_count = 0;
    int begins = 0;
    std::fill(std::begin(model.rows), std::end(model.rows), Positions());
    for (int i = 0; i < model.node_count; ++i) {
        Node& node = model.nodes[i];
        begins += node.kind == NodeKind::begin;
        if (node.kind != NodeKind::character) continue;
        if (model.position_count == MOST_POSITIONS) return false;
        node.position = model.position_count++;
        model.position_nodes[node.position] = i;
        for (size_t byte = 1; byte < 256; ++byte) {
            if (model.sets[node.bytes][byte]) {
                model.rows[byte][static_cast<size_t>(node.position)] = true;
            }
        }
    }
    model.begins_again = begins > 1;
    model.newline_row = model.rows['\n'];
    // The end of a name is no byte: its row is free.
    model.row_count = 0;
    for (const Positions& row : model.rows) {
        Positions* const end = model.rows + model.row_count;
        if (row.any() && std::find(model.rows, end, row) == end) {
            model.rows[model.row_count++] = row;
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
    walk->size += is_anchor(node) ? node.steps_from : 1;
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
        meet(model.nodes[node.left].entry, walk);
    }
    meet(node.kind == NodeKind::choice ? model.nodes[node.right].entry : node.next, walk);
}

static void finish(Walk* walk)
{
    while (walk->height > 0) go_on(model.nodes[walk->stack[--walk->height]], walk);
}

static void walk_from_start(bool passes_begin, bool passes_end, Walk* walk)
{
    *walk = {passes_begin, passes_end, {}, {}, false, 0, 0, {}};
    meet(model.nodes[model.node_count - 1].entry, walk);
    finish(walk);
}

static void walk_on(const Positions& matched, bool passes_begin, bool passes_end, Walk* walk)
{
    *walk = {passes_begin, passes_end, {}, {}, false, 0, 0, {}};
    for (int i = 0; i < model.position_count; ++i) {
        if (!matched[static_cast<size_t>(i)]) continue;
        meet(model.nodes[model.position_nodes[i]].next, walk);
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
    for (; !state && model.state_slots[slot] != 0; slot = (slot + 1) % STATE_SLOTS) {
        const State& other = model.states[model.state_slots[slot] - 1];
        if (other.matched == matched && other.after_newline == after_newline) state = &other;
    }
    if (!state) {
        if (model.state_count == MOST_STATES) return false;
        static Walk walk{};
        walk_on(matched, true, true, &walk);
        model.states[model.state_count] = {matched, after_newline, walk.size};
        state = &model.states[model.state_count++];
        model.state_slots[slot] = static_cast<int16_t>(model.state_count);
        model.kept += state->size;
    }
    model.merged += static_cast<double>(matched.count()) * state->size;
    return model.kept <= MOST_KEPT && model.merged <= MOST_MERGED;
}

// `lines` is the walk that passes a '$'.
static bool enter_states_behind(const Walk& walk, const Walk& lines)
{
    for (int row = 0; row < model.row_count; ++row) {
        if (!enter_state(walk.positions & model.rows[row], false)) return false;
    }
    return enter_state(lines.positions & model.newline_row, model.begins_again);
}

// Whether all states, and what it takes to make them, are within bounds.
static bool states_are_few()
{
    static Walk walk{}, lines{};
    model.state_count = 0;
    model.kept = model.merged = 0;
    std::fill(std::begin(model.state_slots), std::end(model.state_slots), int16_t{0});
    walk_from_start(true, false, &walk);
    walk_from_start(true, true, &lines);
    bool are_few = enter_states_behind(walk, lines);
    for (int i = 0; are_few && i < model.state_count; ++i) {
        const State& state = model.states[i];
        walk_on(state.matched, state.after_newline, false, &walk);
        walk_on(state.matched, state.after_newline, true, &lines);
        are_few = enter_states_behind(walk, lines);
    }
    return are_few;
}

// ---- all of it ----

ExpressionBounds expression_bounds(const char* text)
{
    model.at = text;
    model.failed = false;
    model.depth = 0;
    model.is_balanced = true;
    model.node_count = 0;
    model.set_count = 0;
    take_choices();
    ExpressionBounds bounds{false, false, model.is_balanced};
    if (model.failed || !(link_nodes() <= MOST_STEPS) || !number_positions()) return bounds;
    static Walk walk{};
    walk_from_start(false, false, &walk);
    bounds.begins_at_once = walk.positions.none() && !walk.ends;
    bounds.are_kept = states_are_few();
    return bounds;
}
