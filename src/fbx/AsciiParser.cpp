// SPDX-License-Identifier: MIT
// The ASCII FBX format, read by hand: one pass over the bytes, no regex, no streams.
//
//   ; comment
//   Name: value, value, ... {        values may run over several lines after a comma, or
//       Child: ...                   start on the line after the name (6.1 "Key:")
//   }
//   Vertices: *24 {                  7.x arrays: a count, then one "a:" record of numbers,
//       a: -0.5,0.5,...              which becomes a single array property of "Vertices"
//   }

#include <charconv>
#include <cstring>
#include <string>

#include "fbx/ParserDetail.h"

namespace fbx::detail
{

namespace
{

class AsciiParser
{
public:
    AsciiParser(std::span<const uint8_t> bytes, const FileInfo& info, const ParseOptions& options)
        : begin_(reinterpret_cast<const char*>(bytes.data())), end_(begin_ + bytes.size()),
          p_(begin_), info_(info), options_(options)
    {
    }

    Result<RecordTree> run();

private:
    enum class Value
    {
        Added,
        None,
        Failed
    };

    bool parseList(std::vector<Record>& out, uint32_t depth, bool topLevel);
    bool parseRecord(std::vector<Record>& out, uint32_t depth);
    bool parseValues(Record& record);
    Value parseValue(Record& record);
    bool parseArray(Record& record);
    bool charge(uint64_t bytes, const char* at);
    bool fail(const char* at, std::string reason, ErrorKind kind = ErrorKind::Corrupt);

    void skipSpace();
    static bool isDelimiter(char c)
    {
        return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ',' || c == '{' ||
               c == '}' || c == ':' || c == '"' || c == ';';
    }
    const char* wordEnd(const char* q) const
    {
        while (q < end_ && !isDelimiter(*q))
            ++q;
        return q;
    }
    bool atRecordName() const
    {
        const char* e = wordEnd(p_);
        return e > p_ && e < end_ && *e == ':';
    }

    const char* const begin_;
    const char* const end_;
    const char* p_;
    FileInfo info_;
    ParseOptions options_;
    uint64_t used_ = 0;
    std::vector<std::string_view>
        path_; // names of the records being read (they point into the text)
    Error error_;
};

// An integer: optional sign, digits only. False on anything else or on overflow.
bool parseInteger(const char* b, const char* e, int64_t& out)
{
    bool negative = false;
    if (b < e && (*b == '-' || *b == '+'))
        negative = *b++ == '-';
    if (b == e)
        return false;
    uint64_t v = 0;
    for (; b < e; ++b)
    {
        unsigned d = static_cast<unsigned char>(*b) - '0';
        if (d > 9)
            return false;
        if (v > (uint64_t(INT64_MAX) - d) / 10)
            return false;
        v = v * 10 + d;
    }
    out = negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
    return true;
}

bool parseReal(const char* b, const char* e, double& out)
{
    if (b < e && *b == '+')
        ++b;
    if (b == e)
        return false;
    auto [ptr, ec] = std::from_chars(b, e, out);
    return ec == std::errc() && ptr == e;
}

bool startsNumber(char c)
{
    return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.';
}

Result<RecordTree> AsciiParser::run()
{
    RecordTree tree;
    tree.info = info_;
    if (end_ - p_ >= 3 && std::memcmp(p_, "\xEF\xBB\xBF", 3) == 0)
        p_ += 3;
    if (!parseList(tree.root.children, 0, true))
        return error_;
    return tree;
}

bool AsciiParser::fail(const char* at, std::string reason, ErrorKind kind)
{
    long line = 1;
    for (const char* q = begin_; q < at; ++q)
        line += *q == '\n';
    error_ = Error{std::move(reason) + " (line " + std::to_string(line) + ")", joinPath(path_),
                   static_cast<int64_t>(at - begin_), kind};
    return false;
}

bool AsciiParser::charge(uint64_t bytes, const char* at)
{
    used_ += bytes;
    if (used_ > options_.memoryBudget)
        return fail(
            at, "exceeds the memory budget of " + std::to_string(options_.memoryBudget) + " bytes",
            ErrorKind::TooLarge);
    return true;
}

void AsciiParser::skipSpace()
{
    while (p_ < end_)
    {
        char c = *p_;
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
        {
            ++p_;
        }
        else if (c == ';')
        {
            const void* nl = std::memchr(p_, '\n', end_ - p_);
            p_ = nl ? static_cast<const char*>(nl) : end_;
        }
        else
        {
            return;
        }
    }
}

bool AsciiParser::parseList(std::vector<Record>& out, uint32_t depth, bool topLevel)
{
    for (;;)
    {
        skipSpace();
        if (p_ == end_)
        {
            if (topLevel)
                return true;
            return fail(p_, "file ends inside a record: missing '}'");
        }
        if (*p_ == '}')
        {
            if (topLevel)
                return fail(p_, "'}' without a matching '{'");
            ++p_;
            return true;
        }
        if (!parseRecord(out, depth))
            return false;
    }
}

bool AsciiParser::parseRecord(std::vector<Record>& out, uint32_t depth)
{
    const char* start = p_;
    const char* nameEnd = wordEnd(p_);
    if (nameEnd == p_ || nameEnd == end_ || *nameEnd != ':')
        return fail(p_, "expected a record name followed by ':'");
    path_.emplace_back(start, nameEnd - start);
    if (depth >= options_.maxDepth)
        return fail(start,
                    "records nested deeper than " + std::to_string(options_.maxDepth) + " levels");
    if (!charge(sizeof(Record), start))
        return false;
    Record& record = out.emplace_back();
    record.name.assign(start, nameEnd);
    record.offset = static_cast<uint64_t>(start - begin_);
    p_ = nameEnd + 1;
    if (!parseValues(record))
        return false;
    skipSpace();
    if (p_ < end_ && *p_ == '{')
    {
        ++p_;
        if (!parseList(record.children, depth + 1, false))
            return false;
    }
    path_.pop_back();
    return true;
}

bool AsciiParser::parseValues(Record& record)
{
    skipSpace();
    if (p_ == end_ || *p_ == '{' || *p_ == '}')
        return true;
    if (*p_ == '*')
        return parseArray(record);
    if (*p_ == ',')
        ++p_; // "Content: , "...": an empty first value
    for (;;)
    {
        skipSpace();
        Value v = parseValue(record);
        if (v == Value::Failed)
            return false;
        if (v == Value::None)
            return true;
        skipSpace();
        if (p_ < end_ && *p_ == ',')
        {
            ++p_;
            continue;
        }
        return true;
    }
}

AsciiParser::Value AsciiParser::parseValue(Record& record)
{
    if (p_ == end_ || *p_ == '{' || *p_ == '}')
        return Value::None;
    if (*p_ == '"')
    {
        const char* open = p_;
        const char* close = static_cast<const char*>(std::memchr(p_ + 1, '"', end_ - p_ - 1));
        if (!close)
            return fail(open, "string without its closing quote"), Value::Failed;
        std::string_view raw(p_ + 1, close - p_ - 1);
        // Quotes inside strings are written as &quot;.
        std::string text;
        text.reserve(raw.size());
        for (size_t i = 0; i < raw.size(); ++i)
        {
            if (raw[i] == '&' && raw.substr(i, 6) == "&quot;")
            {
                text += '"';
                i += 5;
            }
            else
            {
                text += raw[i];
            }
        }
        if (!charge(sizeof(Property) + text.size(), open))
            return Value::Failed;
        Property p = Property::block(PropertyType::String, text.size());
        if (!p.data())
            return fail(open, "out of memory", ErrorKind::TooLarge), Value::Failed;
        if (!text.empty())
            std::memcpy(p.data(), text.data(), text.size());
        record.properties.push_back(std::move(p));
        p_ = close + 1;
        return Value::Added;
    }
    const char* e = wordEnd(p_);
    if (e == p_)
        return fail(p_, std::string("unexpected '") + *p_ + "'"), Value::Failed;
    if (e < end_ && *e == ':')
        return Value::None; // the next record's name
    if (!charge(sizeof(Property), p_))
        return Value::Failed;
    int64_t i;
    double d;
    if (startsNumber(*p_) && parseInteger(p_, e, i))
    {
        bool small = i >= INT32_MIN && i <= INT32_MAX;
        record.properties.push_back(
            Property::integer(small ? PropertyType::Int32 : PropertyType::Int64, i));
    }
    else if (startsNumber(*p_) && parseReal(p_, e, d))
    {
        record.properties.push_back(Property::real(PropertyType::Double, d));
    }
    else if (e - p_ == 1)
    {
        // A bare letter (Shading: T) is the binary format's one-byte 'C' property.
        record.properties.push_back(
            Property::integer(PropertyType::Bool, static_cast<unsigned char>(*p_)));
    }
    else
    {
        if (!charge(e - p_, p_))
            return Value::Failed;
        Property p = Property::block(PropertyType::String, e - p_);
        if (!p.data())
            return fail(p_, "out of memory", ErrorKind::TooLarge), Value::Failed;
        std::memcpy(p.data(), p_, e - p_);
        record.properties.push_back(std::move(p));
    }
    p_ = e;
    return Value::Added;
}

bool AsciiParser::parseArray(Record& record)
{
    const char* star = p_;
    const char* e = wordEnd(p_);
    int64_t declared;
    if (!parseInteger(p_ + 1, e, declared) || declared < 0)
        return fail(star, "expected an element count after '*'");
    p_ = e;
    skipSpace();
    if (p_ == end_ || *p_ != '{')
        return fail(p_, "expected '{' after the array count");
    ++p_;
    skipSpace();

    // Integers stay exact (ids, times) until the first decimal turns the array to doubles.
    std::vector<int64_t> ints;
    std::vector<double> reals;
    bool integral = true;
    // The count is only a hint: every element takes at least two characters.
    ints.reserve(static_cast<size_t>(std::min<int64_t>(declared, (end_ - p_) / 2 + 1)));
    if (p_ < end_ && *p_ != '}')
    {
        const char* nameEnd = wordEnd(p_);
        if (nameEnd == p_ || nameEnd == end_ || *nameEnd != ':')
            return fail(p_, "expected 'a:' inside the array");
        p_ = nameEnd + 1;
        for (;;)
        {
            skipSpace();
            const char* w = wordEnd(p_);
            if (w == p_)
            {
                if (p_ < end_ && *p_ == '}')
                    break; // a trailing comma
                return fail(p_, "expected a number in the array");
            }
            int64_t i;
            double d;
            if (integral && parseInteger(p_, w, i))
            {
                ints.push_back(i);
            }
            else if (parseReal(p_, w, d))
            {
                if (integral)
                {
                    reals.reserve(ints.capacity());
                    for (int64_t v : ints)
                        reals.push_back(static_cast<double>(v));
                    ints = {};
                    integral = false;
                }
                reals.push_back(d);
            }
            else
            {
                return fail(p_, "'" + std::string(p_, std::min<ptrdiff_t>(w - p_, 32)) +
                                    "' is not a number");
            }
            p_ = w;
            skipSpace();
            if (p_ < end_ && *p_ == ',')
            {
                ++p_;
                continue;
            }
            break;
        }
    }
    skipSpace();
    if (p_ == end_ || *p_ != '}')
        return fail(p_, "expected '}' at the end of the array");
    ++p_;

    Property p;
    if (integral)
    {
        bool small = true;
        for (int64_t v : ints)
            small = small && v >= INT32_MIN && v <= INT32_MAX;
        if (!charge(sizeof(Property) + ints.size() * (small ? 4 : 8), star))
            return false;
        p = Property::block(small ? PropertyType::Int32Array : PropertyType::Int64Array,
                            ints.size());
        if (!p.data())
            return fail(star, "out of memory", ErrorKind::TooLarge);
        if (small)
        {
            auto* out = reinterpret_cast<int32_t*>(p.data());
            for (size_t k = 0; k < ints.size(); ++k)
                out[k] = static_cast<int32_t>(ints[k]);
        }
        else if (!ints.empty())
        {
            std::memcpy(p.data(), ints.data(), ints.size() * 8);
        }
    }
    else
    {
        if (!charge(sizeof(Property) + reals.size() * 8, star))
            return false;
        p = Property::block(PropertyType::DoubleArray, reals.size());
        if (!p.data())
            return fail(star, "out of memory", ErrorKind::TooLarge);
        std::memcpy(p.data(), reals.data(), reals.size() * 8);
    }
    record.properties.push_back(std::move(p));
    return true;
}

} // namespace

Result<RecordTree> parseAscii(std::span<const uint8_t> bytes, const FileInfo& info,
                              const ParseOptions& options)
{
    AsciiParser parser(bytes, info, options);
    return parser.run();
}

} // namespace fbx::detail
