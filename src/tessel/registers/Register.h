#pragma once
// A register of the chips: a word of which at most 8 bits are used, with named fields.
//
// A block of the chip is a table in a header of its own, to be read beside the chip's documentation; a line is a field:
//
//   //             reset mask
//   VORNA_REGISTER(04, 0x00, 0xFF, "size of the output",
//       // bit, width, from
//       (0, 6, 0, outputHeightLess1, "rows of an output feature, less 1"),
//       (6, 2, 0, outputFeaturesLess1Low, "output features, less 1"))
//
// `from` is the bit of the value that comes to lie at the field's lowest bit: other than 0 for the upper part of a
// value that is spread over registers. The table makes a class, and the compiler proves that its fields don't overlap
// and fill the mask:
//
//   using R = layercore::Register04;
//   const std::uint16_t raw =
//       R().set(R::outputHeightLess1, rows - 1u).set(R::outputFeaturesLess1Low, count - 1u).raw();

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

namespace tessel::registers {

/// The bit pattern of a value: of an enumeration's number, of a signed number's two's complement.
template <class V>
constexpr std::uint32_t bitsOf(V value)
{
    static_assert(sizeof(V) <= sizeof(std::uint32_t));
    if constexpr (std::is_enum_v<V>)
        return static_cast<std::uint32_t>(static_cast<std::underlying_type_t<V>>(value));
    else
        return static_cast<std::uint32_t>(value);
}

/// Bits Low to Low + Width - 1 of register R, which hold the bits From to From + Width - 1 of a value.
template <class R, unsigned Low, unsigned Width, unsigned From>
struct Field {
    static constexpr unsigned low = Low;
    static constexpr unsigned width = Width;
    static constexpr unsigned from = From;
    static_assert(Width > 0 && Low + Width <= 16, "the field lies outside a word of 16 bits");
    static constexpr std::uint16_t mask = static_cast<std::uint16_t>(((1U << Width) - 1) << Low);

    const char* name;
    const char* meaning;
    int index = -1; ///< of fields that are many of a kind; -1: there is one of this name
};

/// Base of every register class. Self: the class itself.
template <class Self, std::uint16_t Number, std::uint16_t ResetValue, std::uint16_t Mask>
class Register {
public:
    static constexpr std::uint16_t number = Number;
    static constexpr std::uint16_t resetValue = ResetValue; ///< what the chip has after a reset
    static constexpr std::uint16_t mask = Mask;             ///< the bits that are defined
    static_assert(Mask <= 0xFF, "at most 8 bits of a register are defined");
    static_assert((ResetValue & ~Mask) == 0, "the reset value has bits that are not defined");

    template <unsigned Low, unsigned Width, unsigned From = 0>
    using Field = registers::Field<Self, Low, Width, From>;

    /// Holds the reset value.
    constexpr Register() = default;
    /// Holds the defined bits of `raw`.
    constexpr explicit Register(std::uint16_t raw) : raw_(raw & Mask) {}

    constexpr std::uint16_t raw() const { return raw_; }

    /// Cuts `value` to the field, that is to its bits From to From + Width - 1, and puts these in its place.
    template <unsigned Low, unsigned Width, unsigned From, class V>
    constexpr Self& set(registers::Field<Self, Low, Width, From> field, V value)
    {
        const std::uint32_t placed = (bitsOf(value) >> From) << Low;
        raw_ = static_cast<std::uint16_t>((raw_ & ~field.mask) | (placed & field.mask));
        return static_cast<Self&>(*this);
    }

    /// The field's bits, shifted to where they lie in the value.
    template <unsigned Low, unsigned Width, unsigned From>
    constexpr std::uint32_t get(registers::Field<Self, Low, Width, From> field) const
    {
        return (static_cast<std::uint32_t>(raw_ & field.mask) >> Low) << From;
    }

private:
    std::uint16_t raw_ = ResetValue;
};

/// True when the fields of R don't overlap and are its mask together.
template <class R>
constexpr bool tiles()
{
    return std::apply(
        [](const auto&... field) {
            return (field.mask | ...) == R::mask && (field.width + ...) == unsigned(std::popcount(R::mask));
        },
        R::fields);
}

/// The registers of one block, in ascending order of their numbers.
template <class... Rs>
struct RegisterList {
    static constexpr std::size_t count = sizeof...(Rs);
    static constexpr std::array<std::uint16_t, count> numbers{Rs::number...};
    static constexpr bool ascending()
    {
        for (std::size_t i = 1; i < count; ++i)
            if (numbers[i - 1] >= numbers[i])
                return false;
        return true;
    }
    static_assert(ascending(), "the registers of a block are listed by ascending number");
};

// ---- streams of small values that run through registers -----------------------------------------------------------

/// A stream of values of Width bits, one behind the other; register 0 holds its bits 0 to 7, register 1 its bits 8 to
/// 15, and so on.
template <unsigned Width, std::size_t Count>
struct RegisterStream {
    static constexpr unsigned width = Width;
    static constexpr std::size_t count = Count;
    static constexpr std::size_t registerCount = (Width * Count + 7) / 8;

    /// What register `number` holds; a value is cut to its width.
    static constexpr std::uint16_t cut(const std::array<std::uint8_t, Count>& values, std::size_t number)
    {
        unsigned raw = 0;
        for (std::size_t bit = 0; bit < 8 && 8 * number + bit < Width * Count; ++bit) {
            const std::size_t position = 8 * number + bit;
            raw |= ((values[position / Width] >> (position % Width)) & 1U) << bit;
        }
        return static_cast<std::uint16_t>(raw);
    }

    /// The part of one value that lies in one register.
    struct Piece {
        std::size_t value;
        unsigned low;
        unsigned width;
        unsigned from;
    };
    static constexpr std::size_t firstValue(std::size_t number) { return 8 * number / Width; }
    static constexpr std::size_t pieceCount(std::size_t number)
    {
        return (8 * number + 7) / Width - firstValue(number) + 1;
    }
    static constexpr Piece piece(std::size_t number, std::size_t i)
    {
        const std::size_t value = firstValue(number) + i;
        const std::size_t begin = std::max(Width * value, 8 * number);
        const std::size_t end = std::min(Width * (value + 1), 8 * (number + 1));
        return {value, unsigned(begin - 8 * number), unsigned(end - begin), unsigned(begin - Width * value)};
    }
};

} // namespace tessel::registers

// ---- the table's lines -------------------------------------------------------------------------------------------

#define VORNA_EXPAND_(...) VORNA_EXPAND_1_(VORNA_EXPAND_1_(VORNA_EXPAND_1_(VORNA_EXPAND_1_(__VA_ARGS__))))
#define VORNA_EXPAND_1_(...) VORNA_EXPAND_2_(VORNA_EXPAND_2_(VORNA_EXPAND_2_(VORNA_EXPAND_2_(__VA_ARGS__))))
#define VORNA_EXPAND_2_(...) __VA_ARGS__
#define VORNA_PARENTHESES_ ()
#define VORNA_EACH_FIELD_(macro, ...) __VA_OPT__(VORNA_EXPAND_(VORNA_EACH_FIELD_STEP_(macro, __VA_ARGS__)))
#define VORNA_EACH_FIELD_STEP_(macro, line, ...) \
    macro line __VA_OPT__(VORNA_EACH_FIELD_AGAIN_ VORNA_PARENTHESES_(macro, __VA_ARGS__))
#define VORNA_EACH_FIELD_AGAIN_() VORNA_EACH_FIELD_STEP_
#define VORNA_DECLARE_FIELD_(low, width, from, name, meaning) \
    static constexpr Field<low, width, from> name{#name, meaning};
#define VORNA_LIST_FIELD_(low, width, from, name, meaning) , std::tuple(name)

/// A register's class, Register04 for the digits 04, from its reset value, mask, meaning and fields.
#define VORNA_REGISTER(digits, reset, mask, what, ...)                                                                 \
    struct Register##digits : Register<Register##digits, 1##digits - 100, reset, mask> {                               \
        using Register::Register;                                                                                      \
        static constexpr const char* meaning = what;                                                                   \
        VORNA_EACH_FIELD_(VORNA_DECLARE_FIELD_, __VA_ARGS__)                                                           \
        static constexpr auto fields = std::tuple_cat(std::tuple() VORNA_EACH_FIELD_(VORNA_LIST_FIELD_, __VA_ARGS__)); \
    };                                                                                                                 \
    static_assert(tiles<Register##digits>(), "the fields overlap, or are not this register's mask together");
