#include "readers/cradle/expression_tree.h"

#include <algorithm>
#include <cstring>

// What is still to be read, and what has been. After a failure nothing that is read counts.
struct Reading {
    const char* at;
    int depth; // of parentheses
    bool failed;
    ExpressionTree* tree;
};

static int fail(Reading* r)
{
    r->failed = true;
    return 0;
}

static bool takes(Reading* r, char c)
{
    if (*r->at != c) return false;
    ++r->at;
    return true;
}

// ---- nodes ----

static int add_node(Reading* r, const Node& node)
{
    if (r->tree->node_count == MAX_EXPRESSION_NODES) return fail(r);
    r->tree->nodes[r->tree->node_count] = node;
    return r->tree->node_count++;
}

static int add_character(Reading* r, const std::bitset<256>& set)
{
    r->tree->sets[r->tree->set_count] = set;
    return add_node(r, {NodeKind::character, 0, 0, r->tree->set_count++});
}

// The part from `begin` to `last`, once more.
static int add_copy(Reading* r, int begin, int last)
{
    const int shift = r->tree->node_count - begin;
    for (int i = begin; i <= last && !r->failed; ++i) {
        Node node = r->tree->nodes[i];
        node.left += shift;
        node.right += shift;
        (void)add_node(r, node);
    }
    return r->tree->node_count - 1;
}

// ---- repetitions ----

constexpr int UNLIMITED = -1;

static bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// UNLIMITED when there is no number. Larger ones than any tree allows are alike.
static int take_count(Reading* r)
{
    int count = is_digit(*r->at) ? 0 : UNLIMITED;
    for (; is_digit(*r->at); ++r->at) {
        count = std::min(count * 10 + (*r->at - '0'), MAX_EXPRESSION_NODES + 1);
    }
    return count;
}

// {2}, {2,}, {,3}, {2,3} or {,}
static bool take_counts(Reading* r, int* least, int* most)
{
    *least = *most = take_count(r);
    if (takes(r, ',')) {
        *least = std::max(*least, 0);
        *most = take_count(r);
    }
    return takes(r, '}') && *least >= 0 && (*most == UNLIMITED || *most >= *least);
}

static bool take_repetition(Reading* r, int* least, int* most)
{
    const char sign = *r->at;
    if (sign == '\0' || !strchr("*+?{", sign)) return false;
    ++r->at;
    *least = sign == '+' ? 1 : 0;
    *most = sign == '?' ? 1 : UNLIMITED;
    if (sign == '{' && !take_counts(r, least, most)) (void)fail(r);
    return !r->failed;
}

// What stands from `begin` on, a number of times: x{2,4} is xx((x)?x)?, x{2,} is xxx*.
static int add_repeated(Reading* r, int begin, int least, int most)
{
    const Node* const nodes = r->tree->nodes;
    // The platform takes copies of anchors for one another.
    if (std::any_of(nodes + begin, nodes + r->tree->node_count, is_anchor)) return fail(r);
    if (most == 0) {
        r->tree->node_count = begin;
        return add_node(r, {NodeKind::nothing, 0, 0, 0});
    }
    const int once = r->tree->node_count - 1;
    int required = once;
    for (int i = 2; i <= least && !r->failed; ++i) {
        required = add_node(r, {NodeKind::sequence, required, add_copy(r, begin, once), 0});
    }
    if (least == most) return required;
    int further = least > 0 ? add_copy(r, begin, once) : once;
    further =
        add_node(r, {most == UNLIMITED ? NodeKind::repetition : NodeKind::optional, further, 0, 0});
    for (int i = least + 2; i <= most && !r->failed; ++i) {
        further = add_node(r, {NodeKind::sequence, further, add_copy(r, begin, once), 0});
        further = add_node(r, {NodeKind::optional, further, 0, 0});
    }
    return least > 0 ? add_node(r, {NodeKind::sequence, required, further, 0}) : further;
}

// ---- brackets ----

// One byte, which may be written [.b.] or [=b=].
static int take_bracket_byte(Reading* r, bool* is_class)
{
    const char* const c = r->at;
    *is_class = c[0] == '[' && c[1] == '=';
    if (c[0] == '\0') return fail(r);
    if (c[0] != '[' || (c[1] != '=' && c[1] != '.' && c[1] != ':')) {
        ++r->at;
        return static_cast<unsigned char>(c[0]);
    }
    if (c[2] == '\0' || c[3] != c[1] || c[4] != ']') return fail(r);
    r->at += 5;
    return static_cast<unsigned char>(c[2]);
}

// A byte or a range of them. A '-' stands for itself at either end of the brackets only.
static void take_bracket_range(Reading* r, bool is_first, std::bitset<256>* set)
{
    if (r->at[0] == '-' && r->at[1] != ']' && !is_first) (void)fail(r);
    bool is_class = false, is_other_class = false;
    const int low = take_bracket_byte(r, &is_class);
    int high = low;
    if (!r->failed && r->at[0] == '-' && r->at[1] != ']') {
        ++r->at;
        high = take_bracket_byte(r, &is_other_class);
        if (is_class || is_other_class || high < low) (void)fail(r);
    }
    for (int byte = low; byte <= high; ++byte) (*set)[static_cast<size_t>(byte)] = true;
}

static int take_bracket(Reading* r)
{
    std::bitset<256> set;
    const bool is_inverted = takes(r, '^');
    take_bracket_range(r, true, &set);
    while (!r->failed && !takes(r, ']')) take_bracket_range(r, false, &set);
    return add_character(r, is_inverted ? ~set : set);
}

// ---- parts ----

static int take_choices(Reading* r);

static int take_group(Reading* r)
{
    ++r->depth;
    const int inside = take_choices(r);
    --r->depth;
    return takes(r, ')') ? inside : fail(r);
}

static int take_part(Reading* r)
{
    const char c = *r->at++;
    if (c == '(') return take_group(r);
    if (c == '[') return take_bracket(r);
    if (c == '^') return add_node(r, {NodeKind::begin, 0, 0, 0});
    if (c == '$') return add_node(r, {NodeKind::end, 0, 0, 0});
    if (c == '.') return add_character(r, ~std::bitset<256>());
    if (strchr("*+?{", c)) return fail(r);
    if (c == '\\' && *r->at == '\0') return fail(r);
    if (c == ')') r->tree->is_balanced = false;
    std::bitset<256> set;
    set[static_cast<unsigned char>(c == '\\' ? *r->at++ : c)] = true;
    return add_character(r, set);
}

static int take_repeated_part(Reading* r)
{
    const int begin = r->tree->node_count;
    int part = take_part(r), least = 0, most = 0;
    while (!r->failed && take_repetition(r, &least, &most)) {
        part = add_repeated(r, begin, least, most);
    }
    return part;
}

static bool is_end_of_choice(const Reading& r)
{
    return *r.at == '\0' || *r.at == '|' || (*r.at == ')' && r.depth > 0);
}

static int take_sequence(Reading* r)
{
    if (is_end_of_choice(*r)) return add_node(r, {NodeKind::nothing, 0, 0, 0});
    int sequence = take_repeated_part(r);
    while (!r->failed && !is_end_of_choice(*r)) {
        sequence = add_node(r, {NodeKind::sequence, sequence, take_repeated_part(r), 0});
    }
    return sequence;
}

static int take_choices(Reading* r)
{
    int choices = take_sequence(r);
    while (!r->failed && takes(r, '|')) {
        choices = add_node(r, {NodeKind::choice, choices, take_sequence(r), 0});
    }
    return choices;
}

bool read_expression(const char* text, ExpressionTree* tree)
{
    tree->node_count = tree->set_count = 0;
    tree->is_balanced = true;
    Reading reading{text, 0, false, tree};
    (void)take_choices(&reading);
    return !reading.failed;
}
