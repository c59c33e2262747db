#include "readers/cradle/expression_tree.h"

#include <algorithm>

ExpressionTree expression_tree;

static const char* at; // what is still to be read of the expression
static int depth;      // of parentheses

// ---- nodes ----

static int fail()
{
    expression_tree.failed = true;
    return 0;
}

static int add_node(const Node& node)
{
    if (expression_tree.node_count == MOST_NODES) return fail();
    expression_tree.nodes[expression_tree.node_count] = node;
    return expression_tree.node_count++;
}

static int add_leaf(NodeKind kind, double steps, double ways)
{
    return add_node(
        {kind, NO_NODE, NO_NODE, expression_tree.node_count, 0, steps, ways, NO_NODE, 0, 0, 0});
}

static int add_character(const Bytes& bytes)
{
    const int leaf = add_leaf(NodeKind::character, 1, 0);
    expression_tree.nodes[leaf].bytes = expression_tree.set_count;
    expression_tree.sets[expression_tree.set_count++] = bytes;
    return leaf;
}

static int add_sequence(int left, int right)
{
    const Node &a = expression_tree.nodes[left], &b = expression_tree.nodes[right];
    return add_node({NodeKind::sequence, left, right, a.entry, 0, a.steps + a.ways * b.steps,
                     a.ways * b.ways, NO_NODE, 0, 0, 0});
}

static int add_choice(int left, int right)
{
    const Node &a = expression_tree.nodes[left], &b = expression_tree.nodes[right];
    return add_node({NodeKind::choice, left, right, expression_tree.node_count, 0,
                     1 + a.steps + b.steps, a.ways + b.ways, NO_NODE, 0, 0, 0});
}

static int add_repetition(int repeated)
{
    const Node& a = expression_tree.nodes[repeated];
    return add_node({NodeKind::repetition, repeated, NO_NODE, expression_tree.node_count, 0,
                     1 + a.steps + a.ways, 1 + a.ways, NO_NODE, 0, 0, 0});
}

// The part that ends with node `last`, once more.
static int add_copy(int begin, int last)
{
    const int shift = expression_tree.node_count - begin;
    for (int i = begin; i <= last && !expression_tree.failed; ++i) {
        Node node = expression_tree.nodes[i];
        node.left += shift;
        node.right += shift;
        node.entry += shift;
        add_node(node);
    }
    return expression_tree.node_count - 1;
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
    int count = is_digit(*at) ? 0 : UNLIMITED;
    for (; is_digit(*at); ++at) {
        count = std::min(count * 10 + (*at - '0'), MAX_COUNT + 1);
    }
    return count;
}

static bool takes(char c)
{
    if (*at != c) return false;
    ++at;
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

// The part from node `begin` on, a number of times: x{2,4} is xx((x)?x)?, x{2,} and xx* are alike.
static int add_repeated(int begin, int least, int most)
{
    // The platform multiplies repeated anchors, and mistakes some.
    const Node *const first = expression_tree.nodes + begin, *const end =
                                                                 expression_tree.nodes +
                                                                 expression_tree.node_count;
    if (std::any_of(first, end, is_anchor)) return fail();
    if (most == 0) {
        expression_tree.node_count = begin;
        return add_leaf(NodeKind::nothing, 0, 1);
    }
    const int once = expression_tree.node_count - 1;
    int required = once;
    for (int i = 2; i <= least && !expression_tree.failed; ++i) {
        required = add_sequence(required, add_copy(begin, once));
    }
    if (least == most) return required;
    int optional = least > 0 ? add_copy(begin, once) : once;
    optional = most == UNLIMITED ? add_repetition(optional)
                                 : add_choice(optional, add_leaf(NodeKind::nothing, 0, 1));
    for (int i = least + 2; i <= most && !expression_tree.failed; ++i) {
        optional = add_sequence(optional, add_copy(begin, once));
        optional = add_choice(optional, add_leaf(NodeKind::nothing, 0, 1));
    }
    return least > 0 ? add_sequence(required, optional) : optional;
}

// A byte of a bracket expression, which may be written [.b.] or [=b=].
static int take_bracket_byte(bool* is_class)
{
    const char* const c = at;
    *is_class = c[0] == '[' && c[1] == '=';
    if (c[0] == '[' && (*is_class || c[1] == '.' || c[1] == ':')) {
        if (c[2] == '\0' || c[3] != c[1] || c[4] != ']') return fail();
        at += 5;
        return static_cast<unsigned char>(c[2]);
    }
    if (c[0] == '\0') return fail();
    ++at;
    return static_cast<unsigned char>(c[0]);
}

static void take_bracket_range(bool is_first, Bytes* bytes)
{
    // A '-' stands for itself at either end only.
    if (at[0] == '-' && at[1] != ']' && !is_first) fail();
    bool is_low_class = false, is_high_class = false;
    const int low = take_bracket_byte(&is_low_class);
    int high = low;
    if (!expression_tree.failed && at[0] == '-' && at[1] != ']') {
        ++at;
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
    for (; !expression_tree.failed && (is_first || *at != ']'); is_first = false) {
        take_bracket_range(is_first, &bytes);
    }
    if (expression_tree.failed) return 0;
    ++at;
    return add_character(inverted ? ~bytes : bytes);
}

static int take_choices();

static int take_group()
{
    if (takes(')')) return add_leaf(NodeKind::nothing, 2, 1);
    ++depth;
    const int inside = take_choices();
    --depth;
    return takes(')') ? inside : fail();
}

static int take_part()
{
    const char c = *at++;
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
    case ')': expression_tree.is_balanced = false; break;
    default: break;
    }
    Bytes bytes;
    const char meant = c == '\\' ? *at : c;
    if (meant == '\0') return fail();
    if (c == '\\') ++at;
    bytes[static_cast<unsigned char>(meant)] = true;
    return add_character(bytes);
}

static int take_repeated_part()
{
    const int begin = expression_tree.node_count;
    int part = take_part();
    while (!expression_tree.failed) {
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
    return *at == '\0' || *at == '|' || (*at == ')' && depth > 0);
}

static int take_sequence()
{
    if (ends_choice()) return add_leaf(NodeKind::nothing, 0, 1);
    int sequence = take_repeated_part();
    while (!expression_tree.failed && !ends_choice()) {
        sequence = add_sequence(sequence, take_repeated_part());
    }
    return sequence;
}

static int take_choices()
{
    int choices = take_sequence();
    while (!expression_tree.failed && takes('|')) choices = add_choice(choices, take_sequence());
    return choices;
}

void read_expression(const char* text)
{
    at = text;
    depth = 0;
    expression_tree.failed = false;
    expression_tree.is_balanced = true;
    expression_tree.node_count = 0;
    expression_tree.set_count = 0;
    take_choices();
}
