#include "skin/Crc32Folding.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace Teko {
namespace {

// The constants are remainders of powers of x by the generator, in the bit-reflected order
// the register keeps, shifted left once because a carry-less product of two reflected
// values comes out one place short. Computed here rather than copied, so that each one
// shows which distance it folds across.
constexpr uint64_t kGenerator = 0x104C11DB7u;

constexpr uint64_t Reflect(uint64_t value, int bits) {
    uint64_t reflected = 0;
    for (int bit = 0; bit < bits; ++bit)
        reflected |= ((value >> bit) & 1u) << (bits - 1 - bit);
    return reflected;
}

// x^n mod the generator.
constexpr uint64_t PowerRemainder(int n) {
    uint64_t remainder = 1;
    for (int i = 0; i < n; ++i) {
        remainder <<= 1;
        if ((remainder >> 32) & 1u) remainder ^= kGenerator;
    }
    return remainder;
}

constexpr uint64_t FoldConstant(int n) {
    return Reflect(PowerRemainder(n), 32) << 1;
}

// floor(x^64 / generator), for the Barrett reduction to 32 bits.
constexpr uint64_t BarrettQuotient() {
    // Long division, bringing down the dividend's bits from x^64 to x^0.
    uint64_t remainder = 0, quotient = 0;
    for (int bit = 64; bit >= 0; --bit) {
        remainder = remainder << 1 | (bit == 64 ? 1u : 0u);
        if ((remainder >> 32) & 1u) {
            remainder ^= kGenerator;
            quotient |= uint64_t{1} << bit;
        }
    }
    return quotient;
}

// Sixteen 128-bit lanes jump 2,048 bits ahead, four 512; one lane 128; the last steps narrow 128
// bits to 64 and then to the 32 of the register.
constexpr uint64_t kSixteenLanesLow = FoldConstant(16 * 128 + 32);
constexpr uint64_t kSixteenLanesHigh = FoldConstant(16 * 128 - 32);
constexpr uint64_t kFourLanesLow = FoldConstant(4 * 128 + 32);
constexpr uint64_t kFourLanesHigh = FoldConstant(4 * 128 - 32);
constexpr uint64_t kOneLaneLow = FoldConstant(128 + 32);
constexpr uint64_t kOneLaneHigh = FoldConstant(128 - 32);
constexpr uint64_t kTo64 = FoldConstant(64);
constexpr uint64_t kReflectedGenerator = Reflect(kGenerator, 33);
constexpr uint64_t kReflectedQuotient = Reflect(BarrettQuotient(), 33);

#if defined(__x86_64__)

#define TEKO_CLMUL __attribute__((target("pclmul,sse2")))

TEKO_CLMUL __m128i Constants(uint64_t low, uint64_t high) {
    return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
}

TEKO_CLMUL __m128i Load(const char* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

// Carries a lane forward across the distance the constants stand for and adds `next`.
TEKO_CLMUL __m128i Fold(__m128i lane, __m128i constants, __m128i next) {
    __m128i low = _mm_clmulepi64_si128(lane, constants, 0x00);
    __m128i high = _mm_clmulepi64_si128(lane, constants, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

// Narrows four lanes of 128 bits (64 bytes in a row), with any 16-byte blocks still to come,
// to the 32-bit register.
TEKO_CLMUL uint32_t Finish(const __m128i (&lanes)[4], const char* bytes, size_t length) {
    const __m128i one = Constants(kOneLaneLow, kOneLaneHigh);
    __m128i folded = lanes[0];
    for (int i = 1; i < 4; ++i)
        folded = Fold(folded, one, lanes[i]);
    for (; length >= 16; bytes += 16, length -= 16)
        folded = Fold(folded, one, Load(bytes));

    // 128 bits to 64: the low half carried across 64 bits onto the high half.
    const __m128i low32 = _mm_setr_epi32(-1, 0, -1, 0);
    folded = _mm_xor_si128(_mm_srli_si128(folded, 8), _mm_clmulepi64_si128(folded, one, 0x10));
    // 64 bits to 32 plus 32 waiting for the reduction.
    __m128i to64 = Constants(kTo64, 0);
    __m128i upper = _mm_srli_si128(folded, 4);
    folded = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(folded, low32), to64, 0x00), upper);
    // Barrett: subtract the multiple of the generator that the quotient estimates.
    __m128i barrett = Constants(kReflectedGenerator, kReflectedQuotient);
    __m128i estimate = _mm_clmulepi64_si128(_mm_and_si128(folded, low32), barrett, 0x10);
    __m128i multiple = _mm_clmulepi64_si128(_mm_and_si128(estimate, low32), barrett, 0x00);
    folded = _mm_xor_si128(folded, multiple);
    return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(folded, 4)));
}

TEKO_CLMUL uint32_t FoldAll(uint32_t state, const char* bytes, size_t length) {
    __m128i lanes[4];
    for (int i = 0; i < 4; ++i)
        lanes[i] = Load(bytes + 16 * i);
    lanes[0] = _mm_xor_si128(lanes[0], _mm_cvtsi32_si128(static_cast<int>(state)));
    bytes += 64;
    length -= 64;

    const __m128i four = Constants(kFourLanesLow, kFourLanesHigh);
    for (; length >= 64; bytes += 64, length -= 64) {
        for (int i = 0; i < 4; ++i)
            lanes[i] = Fold(lanes[i], four, Load(bytes + 16 * i));
    }
    return Finish(lanes, bytes, length);
}

// The same folds four 128-bit lanes to a 512-bit register, four registers at a time: 256
// bytes per step. A 64-byte register holds exactly the four lanes above, so one register
// alone folds across the same 512 bits with the same constants.
#define TEKO_CLMUL_WIDE __attribute__((target("vpclmulqdq,avx512f,pclmul,sse2")))

// Built from scalars: the broadcast and extract intrinsics of this compiler draw false
// warnings about their undefined fillers.
TEKO_CLMUL_WIDE __m512i WideConstants(uint64_t low, uint64_t high) {
    auto l = static_cast<long long>(low);
    auto h = static_cast<long long>(high);
    return _mm512_set_epi64(h, l, h, l, h, l, h, l);
}

TEKO_CLMUL_WIDE __m512i WideLoad(const char* bytes) {
    return _mm512_loadu_si512(bytes);
}

TEKO_CLMUL_WIDE __m512i WideFold(__m512i lanes, __m512i constants, __m512i next) {
    __m512i low = _mm512_clmulepi64_epi128(lanes, constants, 0x00);
    __m512i high = _mm512_clmulepi64_epi128(lanes, constants, 0x11);
    return _mm512_ternarylogic_epi64(low, high, next, 0x96);  // low ^ high ^ next
}

TEKO_CLMUL_WIDE uint32_t WideFoldAll(uint32_t state, const char* bytes, size_t length) {
    __m512i registers[4];
    for (int i = 0; i < 4; ++i)
        registers[i] = WideLoad(bytes + 64 * i);
    __m128i seed = _mm_cvtsi32_si128(static_cast<int>(state));
    registers[0] = _mm512_xor_si512(registers[0], _mm512_zextsi128_si512(seed));
    bytes += 256;
    length -= 256;

    const __m512i far = WideConstants(kSixteenLanesLow, kSixteenLanesHigh);
    for (; length >= 256; bytes += 256, length -= 256) {
        for (int i = 0; i < 4; ++i)
            registers[i] = WideFold(registers[i], far, WideLoad(bytes + 64 * i));
    }
    const __m512i four = WideConstants(kFourLanesLow, kFourLanesHigh);
    __m512i folded = registers[0];
    for (int i = 1; i < 4; ++i)
        folded = WideFold(folded, four, registers[i]);
    for (; length >= 64; bytes += 64, length -= 64)
        folded = WideFold(folded, four, WideLoad(bytes));

    __m128i lanes[4];
    _mm512_storeu_si512(lanes, folded);
    return Finish(lanes, bytes, length);
}

#endif

}  // namespace

bool Crc32Folding::IsAvailable() {
#if defined(__x86_64__)
    static const bool available = __builtin_cpu_supports("pclmul") != 0;
    return available;
#else
    return false;
#endif
}

bool Crc32Folding::IsWideAvailable() {
#if defined(__x86_64__)
    // The check for AVX-512 includes the system's saving of the wide registers.
    static const bool available = IsAvailable() && __builtin_cpu_supports("avx512f") != 0 &&
                                  __builtin_cpu_supports("vpclmulqdq") != 0;
    return available;
#else
    return false;
#endif
}

uint32_t Crc32Folding::UpdateNarrow(uint32_t state, const char* bytes, size_t length) {
#if defined(__x86_64__)
    return FoldAll(state, bytes, length);
#else
    (void)bytes;
    (void)length;
    return state;
#endif
}

uint32_t Crc32Folding::Update(uint32_t state, const char* bytes, size_t length) {
#if defined(__x86_64__)
    if (length >= kWideMinBytes && IsWideAvailable()) return WideFoldAll(state, bytes, length);
    return FoldAll(state, bytes, length);
#else
    (void)bytes;
    (void)length;
    return state;
#endif
}

}  // namespace Teko
