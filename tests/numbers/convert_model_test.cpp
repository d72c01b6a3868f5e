// Each of the 408 converters gives what a model of numbers gives that shares no code with them.
//
// In the model a value is a sign, an integer and a power of two. They are taken from the bits of
// the value and put together again with integer operations only.

#include "stock/convert.h"

#include <algorithm>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "support/convert_values.h"

namespace {

__extension__ typedef __int128 Wide;

// (-1)^negative * magnitude * 2^power.
struct Exact {
    bool nan = false;
    bool infinite = false;
    bool negative = false;
    uint64_t magnitude = 0;
    int power = 0;

    // Zeros are equal whatever their sign, NaN equals nothing.
    bool operator==(const Exact &other) const
    {
        return !nan && !other.nan && infinite == other.infinite && magnitude == other.magnitude &&
               power == other.power &&
               (negative == other.negative || (magnitude == 0 && !infinite));
    }
};

// The one form that equal values share.
Exact normal(Exact x)
{
    if (x.nan || x.infinite)
        return x;
    if (x.magnitude == 0)
        x.power = 0;
    for (; x.magnitude != 0 && x.magnitude % 2 == 0; x.magnitude /= 2)
        ++x.power;
    return x;
}

struct Format {
    int fraction_bits;
    int exponent_bits;

    int bias() const { return (1 << (exponent_bits - 1)) - 1; }
    uint64_t exponent_ones() const { return (uint64_t{1} << exponent_bits) - 1; }
};

Format format_of(char type)
{
    return type == 'f' ? Format{23, 8} : Format{52, 11};
}

Exact from_integer(Wide value)
{
    return normal({.negative = value < 0, .magnitude = uint64_t(value < 0 ? -value : value)});
}

Exact decode(uint64_t bits, char type, bool is_unsigned)
{
    const int width = int(width_of(type)) * 8;
    if (!is_floating(type)) {
        const bool negative = !is_unsigned && (bits >> (width - 1)) != 0;
        return from_integer(Wide(bits) - (negative ? Wide(1) << width : 0));
    }
    const Format f = format_of(type);
    const uint64_t fraction = bits & ((uint64_t{1} << f.fraction_bits) - 1);
    const uint64_t exponent = (bits >> f.fraction_bits) & f.exponent_ones();
    Exact x{.negative = (bits >> (width - 1)) != 0};
    if (exponent == f.exponent_ones()) {
        x.nan = fraction != 0;
        x.infinite = !x.nan;
        x.magnitude = fraction;
        return x;
    }
    x.magnitude = fraction + (exponent ? uint64_t{1} << f.fraction_bits : 0);
    x.power = int(exponent ? exponent : 1) - f.bias() - f.fraction_bits;
    return normal(x);
}

// The floating value that is nearest, of two the even one.
uint64_t encode_floating(const Exact &x, char type)
{
    const Format f = format_of(type);
    const uint64_t sign = uint64_t(x.negative) << (f.fraction_bits + f.exponent_bits);
    const uint64_t infinity = f.exponent_ones() << f.fraction_bits;
    if (x.infinite)
        return sign | infinity;
    // Shift the magnitude until the last bit that the format keeps stands at bit 0.
    Wide magnitude = x.magnitude;
    int power = x.power;
    const int least_power = 1 - f.bias() - f.fraction_bits;
    while (magnitude != 0 && magnitude < (Wide(1) << f.fraction_bits) && power > least_power) {
        magnitude *= 2;
        --power;
    }
    bool half = false, more = false;
    while (magnitude >= (Wide(2) << f.fraction_bits) || power < least_power) {
        more |= half;
        half = magnitude % 2 != 0;
        magnitude /= 2;
        ++power;
    }
    if (half && (more || magnitude % 2 != 0))
        ++magnitude;
    if (magnitude == (Wide(2) << f.fraction_bits)) {
        magnitude /= 2;
        ++power;
    }
    const bool subnormal = magnitude < (Wide(1) << f.fraction_bits);
    const int64_t exponent = subnormal ? 0 : power + f.bias() + f.fraction_bits;
    if (exponent >= int64_t(f.exponent_ones()))
        return sign | infinity;
    const uint64_t fraction = uint64_t(magnitude) & ((uint64_t{1} << f.fraction_bits) - 1);
    return sign | uint64_t(exponent) << f.fraction_bits | fraction;
}

// NaN keeps its sign and what fits of its bits, and comes out quiet.
uint64_t encode_nan(const Exact &x, char from, char to)
{
    const Format f = format_of(to);
    const int shift = f.fraction_bits - format_of(from).fraction_bits;
    const uint64_t fraction = shift < 0 ? x.magnitude >> -shift : x.magnitude << shift;
    return uint64_t(x.negative) << (f.fraction_bits + f.exponent_bits) |
           f.exponent_ones() << f.fraction_bits | uint64_t{1} << (f.fraction_bits - 1) | fraction;
}

constexpr Wide kHuge = Wide(1) << 100;

// The value without its fraction; beyond +-2^100 that limit.
Wide whole(const Exact &x)
{
    Wide value = x.magnitude;
    if (x.infinite || x.power > 64)
        value = x.magnitude || x.infinite ? kHuge : 0;
    else if (x.power > 0)
        value <<= x.power;
    else
        value = x.power < -64 ? 0 : value >> -x.power;
    return x.negative ? -value : value;
}

bool has_fraction(const Exact &x)
{
    return !x.infinite && x.magnitude != 0 && x.power < 0;  // normalised: magnitude is odd
}

struct Limits {
    Wide low, high;
};

Limits limits(char type, bool is_unsigned)
{
    const int width = int(width_of(type)) * 8;
    if (is_unsigned)
        return {0, (Wide(1) << width) - 1};
    return {-(Wide(1) << (width - 1)), (Wide(1) << (width - 1)) - 1};
}

// What the conversion instruction of x86-64 gives, before it is cut to the width.
Wide instruction(const Exact &x, char type, bool is_unsigned)
{
    const bool is_long = type == 'l' || (type == 'i' && is_unsigned);
    const Limits held = limits(is_long ? 'l' : 'i', false);
    const Wide value = whole(x);
    const Wide high = type == 'l' && is_unsigned ? limits('l', true).high : held.high;
    return x.nan || value < held.low || value > high ? held.low : value;
}

uint64_t cut(Wide value, char type)
{
    return uint64_t(value) & uint64_t(limits(type, true).high);
}

struct Result {
    uint64_t bits;
    bool exact;
};

struct Member {
    bool is_unsigned;
    bool reads;
    char order, external, host;

    char from() const { return reads ? external : host; }
    char to() const { return reads ? host : external; }
    bool external_is_big() const { return order == 'm'; }

    std::string name() const
    {
        const std::string x{order, external}, h{'h', host};
        return (is_unsigned ? "u" : "") + (reads ? x + "2" + h : h + "2" + x);
    }
};

Result model_floating(const Member &m, const Exact &x)
{
    if (x.nan)
        return {encode_nan(x, m.from(), m.to()), false};
    const uint64_t bits = encode_floating(x, m.to());
    return {bits, decode(bits, m.to(), m.is_unsigned) == x};
}

Result model_reading(const Member &m, const Exact &x)
{
    const Wide value = is_floating(m.from()) ? instruction(x, m.to(), m.is_unsigned) : whole(x);
    const uint64_t bits = cut(value, m.to());
    return {bits, decode(bits, m.to(), m.is_unsigned) == x};
}

Result model_writing(const Member &m, const Exact &x)
{
    if (x.nan)
        return {cut(instruction(x, m.to(), m.is_unsigned), m.to()), false};
    const auto [low, high] = limits(m.to(), m.is_unsigned);
    const Wide value = whole(x);
    if (value > high || (value == high && has_fraction(x) && !x.negative))
        return {cut(high, m.to()), false};
    if (value < low || (value == low && has_fraction(x) && x.negative))
        return {cut(low, m.to()), false};
    return {cut(value, m.to()), true};
}

Result model(const Member &m, uint64_t bits)
{
    if (m.from() == m.to())
        return {bits, true};
    const Exact x = decode(bits, m.from(), m.is_unsigned);
    if (is_floating(m.to()))
        return model_floating(m, x);
    return m.reads ? model_reading(m, x) : model_writing(m, x);
}

std::vector<Member> all_members()
{
    std::vector<Member> members;
    for (char order : {'m', 'a', 'v'})
        for (char external : kTypeLetters)
            for (char host : kTypeLetters)
                for (bool is_unsigned : {false, true})
                    for (bool reads : {true, false})
                        if (!is_unsigned || !is_floating(external) || !is_floating(host))
                            members.push_back({is_unsigned, reads, order, external, host});
    return members;
}

template <class H>
int call_typed(const Member &m, void *function, char **external, char *host, int n)
{
    if (m.reads)
        return reinterpret_cast<int (*)(char **, H *, int)>(function)(
            external, reinterpret_cast<H *>(host), n);
    return reinterpret_cast<int (*)(const H *, char **, int)>(function)(
        reinterpret_cast<const H *>(host), external, n);
}

// Calls the member by its name.
int call(const Member &m, char **external, char *host, int n)
{
    void *const f = dlsym(RTLD_DEFAULT, m.name().c_str());
    if (!f) {
        ADD_FAILURE() << "no function " << m.name();
        return 1;
    }
    switch (m.host) {
    case 'f': return call_typed<float>(m, f, external, host, n);
    case 'd': return call_typed<double>(m, f, external, host, n);
    case 'b':
        return m.is_unsigned ? call_typed<unsigned char>(m, f, external, host, n)
                             : call_typed<signed char>(m, f, external, host, n);
    case 's':
        return m.is_unsigned ? call_typed<unsigned short>(m, f, external, host, n)
                             : call_typed<short>(m, f, external, host, n);
    case 'i':
        return m.is_unsigned ? call_typed<unsigned>(m, f, external, host, n)
                             : call_typed<int>(m, f, external, host, n);
    default:
        return m.is_unsigned ? call_typed<unsigned long>(m, f, external, host, n)
                             : call_typed<long>(m, f, external, host, n);
    }
}

void put_bits(char *bytes, uint64_t bits, size_t width, bool big)
{
    for (size_t i = 0; i < width; ++i)
        bytes[i] = char(bits >> 8 * (big ? width - 1 - i : i));
}

uint64_t take_bits(const char *bytes, size_t width, bool big)
{
    uint64_t bits = 0;
    for (size_t i = 0; i < width; ++i)
        bits |= uint64_t(static_cast<unsigned char>(bytes[i])) << 8 * (big ? width - 1 - i : i);
    return bits;
}

constexpr bool kHostIsBig = std::endian::native == std::endian::big;
constexpr size_t kMargin = 64;
constexpr char kUntouched = 0x5a;

// The two buffers of a call: the host's is aligned for its type, the external one need not be.
// Margins around them show bytes that were written and should not have been.
class Trial {
public:
    Trial(const Member &m, const std::vector<uint64_t> &values, size_t shift)
        : member_(m), values_(values),
          host_(values.size() * width_of(m.host) + 2 * kMargin, kUntouched),
          external_(values.size() * width_of(m.external) + 2 * kMargin + shift, kUntouched),
          shift_(shift)
    {
        for (size_t i = 0; i < values.size(); ++i) {
            if (m.reads)
                put_bits(external() + i * width_of(m.external), values[i], width_of(m.external),
                         m.external_is_big());
            else
                put_bits(host() + i * width_of(m.host), values[i], width_of(m.host), kHostIsBig);
        }
    }

    // Calls the member and compares values, status, cursor and margins with the model.
    void check()
    {
        const size_t n = values_.size();
        std::vector<char> expected = member_.reads ? host_ : external_;
        char *const to = expected.data() + kMargin + (member_.reads ? 0 : shift_);
        bool exact = true;
        for (size_t i = 0; i < n; ++i) {
            const Result result = model(member_, values_[i]);
            exact &= result.exact;
            put_bits(to + i * width_of(member_.to()), result.bits, width_of(member_.to()),
                     member_.reads ? kHostIsBig : member_.external_is_big());
        }
        char *cursor = external();
        EXPECT_EQ(call(member_, &cursor, host(), int(n)), exact ? 0 : -1);
        EXPECT_EQ(cursor, external() + n * width_of(member_.external));
        const std::vector<char> &written = member_.reads ? host_ : external_;
        if (written != expected)
            explain(to - expected.data(), expected, written);
    }

private:
    char *host() { return host_.data() + kMargin; }
    char *external() { return external_.data() + kMargin + shift_; }

    void explain(ptrdiff_t start, const std::vector<char> &expected,
                 const std::vector<char> &written)
    {
        const auto at = std::mismatch(expected.begin(), expected.end(), written.begin()).first -
                        expected.begin();
        const auto i = (at - start) / ptrdiff_t(width_of(member_.to()));
        if (at < start || size_t(i) >= values_.size()) {
            ADD_FAILURE() << "wrote outside, at " << at - start;
            return;
        }
        const size_t width = width_of(member_.to());
        const bool big = member_.reads ? kHostIsBig : member_.external_is_big();
        const auto byte = size_t(start) + size_t(i) * width;
        ADD_FAILURE() << std::hex << "value " << values_[size_t(i)] << " gave "
                      << take_bits(&written[byte], width, big) << ", expected "
                      << take_bits(&expected[byte], width, big);
    }

    const Member &member_;
    const std::vector<uint64_t> &values_;
    std::vector<char> host_, external_;
    size_t shift_;
};

std::vector<uint64_t> values_for(char type)
{
    const std::string bytes = boundary_values(type);
    std::vector<uint64_t> values;
    for (size_t at = 0; at < bytes.size(); at += width_of(type))
        values.push_back(take_bits(bytes.data() + at, width_of(type), kHostIsBig));
    return values;
}

const std::vector<uint64_t> &values_of(char type)
{
    static const std::vector<uint64_t> values[] = {values_for('b'), values_for('s'),
                                                   values_for('i'), values_for('l'),
                                                   values_for('f'), values_for('d')};
    return values[kTypeLetters.find(type)];
}

constexpr size_t kShifts[] = {0, 1, 3, 7};
constexpr size_t kCounts[] = {0, 1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 33, 1000};

}  // namespace

TEST(ConvertModel, ThereAre408Members)
{
    EXPECT_EQ(all_members().size(), 408u);
}

TEST(ConvertModel, AMemberIsFoundByItsName)
{
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "ms2hs"), reinterpret_cast<void *>(ms2hs));
}

TEST(ConvertModel, EveryMemberConvertsEveryBoundaryValueAsTheModelDoes)
{
    for (const Member &m : all_members()) {
        SCOPED_TRACE(m.name());
        Trial(m, values_of(m.from()), 0).check();
    }
}

TEST(ConvertModel, EveryMemberReportsEachBoundaryValueAsTheModelDoes)
{
    for (const Member &m : all_members()) {
        SCOPED_TRACE(m.name());
        for (uint64_t value : values_of(m.from()))
            Trial(m, {value}, 0).check();
    }
}

TEST(ConvertModel, EveryMemberTakesEveryCountAtUnalignedPlaces)
{
    for (const Member &m : all_members()) {
        SCOPED_TRACE(m.name());
        const std::vector<uint64_t> &values = values_of(m.from());
        for (size_t n : kCounts) {
            std::vector<uint64_t> some(n);
            for (size_t i = 0; i < n; ++i)
                some[i] = values[(i * 7 + n) % values.size()];
            for (size_t shift : kShifts)
                Trial(m, some, shift).check();
        }
    }
}

TEST(ConvertModel, OneInexactValueAnywhereIsReported)
{
    for (const Member &m : all_members()) {
        SCOPED_TRACE(m.name());
        const auto &values = values_of(m.from());
        const auto bad = std::find_if(values.begin(), values.end(),
                                      [&](uint64_t value) { return !model(m, value).exact; });
        if (bad == values.end())
            continue;  // such as a short to a double
        for (size_t n : {size_t{1}, size_t{9}, size_t{33}, size_t{1000}}) {
            for (size_t at : {size_t{0}, n / 2, n - 1}) {
                std::vector<uint64_t> some(n, 0);
                some[at] = *bad;
                Trial(m, some, 1).check();
            }
        }
    }
}

TEST(ConvertModel, BytesThatReadExactlyAndAreWrittenExactlyComeBackTheSame)
{
    std::mt19937_64 random(3);
    for (const Member &m : all_members()) {
        if (!m.reads)
            continue;
        SCOPED_TRACE(m.name());
        Member back = m;
        back.reads = false;
        const size_t width = width_of(m.external);
        for (int round = 0; round < 300; ++round) {
            // Few bits set make values that often fit.
            uint64_t bits = values_of(m.external)[random() % values_of(m.external).size()];
            if (is_floating(m.external) && bits << (65 - 8 * width) == 0)
                bits = 0;  // negative zero is an integer's zero
            alignas(8) char host[8];
            char external[8], again[8] = {};
            put_bits(external, bits, width, m.external_is_big());
            char *from = external, *to = again;
            if (call(m, &from, host, 1) == 0 && call(back, &to, host, 1) == 0) {
                EXPECT_EQ(std::string(external, width), std::string(again, width));
            }
        }
    }
}

TEST(ConvertModel, ANegativeCountConvertsNothing)
{
    for (const Member &m : all_members()) {
        SCOPED_TRACE(m.name());
        alignas(8) char host[8] = {};
        char external[8] = {};
        char *cursor = external;
        EXPECT_EQ(call(m, &cursor, host, -1), -1);
        EXPECT_EQ(cursor, external);
    }
}

// Programs convert the numbers of a file in the buffer into which they were read.
TEST(ConvertModel, AValueThatDoesNotGrowIsConvertedInPlace)
{
    for (const Member &m : all_members()) {
        if (width_of(m.to()) > width_of(m.from()))
            continue;
        SCOPED_TRACE(m.name());
        const auto &values = values_of(m.from());
        std::vector<double> room(values.size());  // aligned for every type
        char *const place = reinterpret_cast<char *>(room.data());
        std::string expected;
        for (size_t i = 0; i < values.size(); ++i) {
            put_bits(place + i * width_of(m.from()), values[i], width_of(m.from()),
                     m.reads ? m.external_is_big() : kHostIsBig);
            char bytes[8];
            put_bits(bytes, model(m, values[i]).bits, width_of(m.to()),
                     m.reads ? kHostIsBig : m.external_is_big());
            expected.append(bytes, width_of(m.to()));
        }
        char *cursor = place;
        call(m, &cursor, place, int(values.size()));
        EXPECT_EQ(std::string(place, expected.size()), expected);
    }
}
