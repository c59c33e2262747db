// A mutator for libFuzzer that knows records, items and sections of an FLD file and frames it
// anew, so that most mutants are read far beyond the change.
#include "input.h"

#include <algorithm>
#include <random>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace fld_fuzz
{

// ---- what stands where ----

// A descriptor record and its data records.
struct Item {
    size_t descriptor; // its record
    int32_t element_size;
    size_t end; // the record behind it
    size_t elements;
};

static int32_t int_at(const FldRecords& file, size_t record, size_t at)
{
    return fld_test::int_at(file.records[record], at, file.format.big_endian);
}

static std::string encoded(const FldRecords& file, const std::vector<int32_t>& values)
{
    const fld_test::FldBuilder builder(file.format);
    std::string data;
    for (const int32_t value : values) data += builder.encoded(value, 4);
    return data;
}

static std::vector<Item> find_items(const FldRecords& file)
{
    std::vector<Item> items;
    for (size_t i = 0; i < file.records.size();) {
        const size_t descriptor = i++;
        if (file.records[descriptor].size() != 12) continue;
        const int32_t size = int_at(file, descriptor, 0);
        const int32_t records = int_at(file, descriptor, 8);
        if (size != 1 && size != 4 && size != 8) continue;
        if (records < 1 || static_cast<size_t>(records) > file.records.size() - i) continue;
        size_t bytes = 0;
        for (int32_t k = 0; k < records; ++k) bytes += file.records[i++].size();
        items.push_back({descriptor, size, i, bytes / static_cast<size_t>(size)});
    }
    return items;
}

// The records that name a section: 32 characters behind an end record or another name.
static std::vector<size_t> find_names(const FldRecords& file)
{
    std::vector<size_t> names;
    const std::string end(12, '\0');
    for (size_t i = 1; i < file.records.size(); ++i) {
        const std::string& before = file.records[i - 1];
        if (file.records[i].size() != 32) continue;
        if (i == 2 || before == end || (!names.empty() && names.back() == i - 1))
            names.push_back(i);
    }
    return names;
}

// A section with its name and its end record: the records from the k-th name on to the next.
static std::vector<std::string> section(const FldRecords& file, size_t k)
{
    const std::vector<size_t> names = find_names(file);
    const size_t end = k + 1 < names.size() ? names[k + 1] : file.records.size();
    return {&file.records[names[k]], file.records.data() + end};
}

// ---- mutations ----

class Mutator
{
public:
    Mutator(FldRecords* file, unsigned seed) : file_(*file), random_(seed) {}

    size_t below(size_t limit) { return limit > 0 ? random_() / 7 % limit : 0; }

    void mutate()
    {
        using Mutation = void (Mutator::*)();
        static constexpr Mutation mutations[] = {
            &Mutator::change_bytes,  &Mutator::change_bytes,  &Mutator::change_int,
            &Mutator::change_int,    &Mutator::change_int,    &Mutator::change_records,
            &Mutator::resize_arrays, &Mutator::resize_arrays, &Mutator::resize_arrays,
            &Mutator::copy_section,  &Mutator::erase_section, &Mutator::reframe};
        if (file_.records.empty()) return;
        (this->*mutations[below(std::size(mutations))])();
    }

    // Places a section in front of another one.
    void insert(const std::vector<std::string>& records)
    {
        const std::vector<size_t> names = find_names(file_);
        if (names.empty()) return;
        const auto at = record_at(names[below(names.size())]);
        file_.records.insert(at, records.begin(), records.end());
    }

private:
    std::vector<std::string>::iterator record_at(size_t i)
    {
        return file_.records.begin() + static_cast<std::ptrdiff_t>(i);
    }

    void change_bytes()
    {
        std::string& record = file_.records[below(file_.records.size())];
        const size_t size = record.size();
        record.resize(size + 16);
        record.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(record.data()), size, size + 16));
    }

    void change_int()
    {
        static constexpr int32_t values[] = {
            0,  1,  2,   3,   4,   5,  8,  12, 23,  24,   32,    33,        34,       35,
            36, 38, 122, 133, 134, -1, -2, -8, 100, 1000, 65536, INT32_MIN, INT32_MAX};
        const size_t i = below(file_.records.size());
        if (file_.records[i].size() < 4) return;
        const size_t at = below(file_.records[i].size() / 4) * 4;
        const auto old = static_cast<uint32_t>(int_at(file_, i, at));
        const int32_t near[] = {static_cast<int32_t>(old + 1), static_cast<int32_t>(old - 1)};
        const int32_t value = below(3) == 0 ? near[below(2)] : values[below(std::size(values))];
        file_.records[i].replace(at, 4, encoded(file_, {value}));
    }

    void change_records()
    {
        std::vector<std::string>& records = file_.records;
        const auto at = record_at(below(records.size()));
        switch (below(5)) {
        case 0: records.erase(at); break;
        case 1: records.insert(at, std::string(*at)); break;
        case 2: std::swap(*at, records[below(records.size())]); break;
        case 3: *at = records[below(records.size())]; break;
        default: records.erase(at, records.end()); break;
        }
    }

    // Writes an item's elements anew, `per_record` of them in each data record.
    void write_item(const Item& item, const std::string& data, size_t per_record)
    {
        fld_test::FldBuilder made({.big_endian = file_.format.big_endian,
                                   .values_per_record = static_cast<int32_t>(per_record)});
        made.array(item.element_size, data);
        const auto at = file_.records.erase(record_at(item.descriptor), record_at(item.end));
        const auto records = parse_records(made.bytes()).records;
        file_.records.insert(at, records.begin(), records.end());
    }

    std::string data_of(const Item& item) const
    {
        std::string data;
        for (size_t i = item.descriptor + 1; i < item.end; ++i) data += file_.records[i];
        return data;
    }

    // Arrays of one length that follow each other get another length, or other data records,
    // together, and so does the count in front of them.
    void resize_arrays()
    {
        const std::vector<Item> items = find_items(file_);
        if (items.empty()) return;
        const size_t chosen = below(items.size());
        const size_t old = items[chosen].elements;
        const size_t sizes[] = {0, 1, old, old, old + 1, old + 1, old > 0 ? old - 1 : 1, 2 * old};
        const size_t wanted = sizes[below(std::size(sizes))];
        const size_t per_record = below(2) == 0 ? wanted : std::min(wanted, 1 + below(40));
        size_t first = chosen, last = chosen;
        const auto belong = [&](size_t i) {
            return items[i].end == items[i + 1].descriptor && items[i].elements == old &&
                   items[i + 1].elements == old;
        };
        while (first > 0 && belong(first - 1)) --first;
        while (last + 1 < items.size() && belong(last)) ++last;
        for (size_t i = last + 1; i-- > first;) {
            std::string data = data_of(items[i]);
            const size_t size = wanted * static_cast<size_t>(items[i].element_size);
            while (!data.empty() && data.size() < size) data += data.substr(0, size - data.size());
            data.resize(size);
            write_item(items[i], data, per_record);
        }
        if (first == 0 || items[first - 1].end != items[first].descriptor) return;
        std::string& count = file_.records[items[first].descriptor - 1];
        const auto number = [&](size_t n) { return encoded(file_, {static_cast<int32_t>(n)}); };
        if (count == number(old)) count = number(wanted);
    }

    void copy_section()
    {
        const size_t count = find_names(file_).size();
        if (count > 0) insert(section(file_, below(count)));
    }

    void erase_section()
    {
        const std::vector<size_t> names = find_names(file_);
        if (names.empty()) return;
        const size_t k = below(names.size());
        const size_t end = names[k] + section(file_, k).size();
        file_.records.erase(record_at(names[k]), record_at(end));
    }

    void reframe()
    {
        static constexpr int32_t lengths[] = {0, 0, 0, 1, 3, 5, 12, 37};
        file_.format.max_subrecord = lengths[below(std::size(lengths))];
    }

    FldRecords& file_;
    std::minstd_rand random_;
};

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned seed)
{
    Input input = split_input(data, size);
    std::string& file =
        (seed & 1) != 0 && !input.second_file.empty() ? input.second_file : input.file;
    FldRecords records = parse_records(file);
    Mutator mutator(&records, seed);
    const size_t kind = mutator.below(32);
    if (kind < 2 || records.records.empty()) return LLVMFuzzerMutate(data, size, max_size);
    if (kind < 4) {
        input.choices.resize(std::max<size_t>(input.choices.size(), 5));
        input.choices[mutator.below(input.choices.size())] = static_cast<char>(mutator.below(256));
    } else if (kind < 5) {
        input.second_file = input.second_file.empty() ? input.file : "";
    } else {
        for (size_t i = mutator.below(3) + 1; i > 0; --i) mutator.mutate();
        file = framed(records);
    }
    const std::string text = joined(input);
    if (text.size() > max_size) return LLVMFuzzerMutate(data, size, max_size);
    std::copy(text.begin(), text.end(), data);
    return text.size();
}

} // namespace fld_fuzz
