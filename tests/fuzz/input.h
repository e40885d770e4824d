#pragma once

// What a fuzzer's bytes stand for: choices, numbers and cases. Every sequence of bytes stands for
// something, and few bytes for many cases, so that most changes to an input change what is tried.

#include "../cases.h"

#include <array>
#include <cfenv>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

namespace velmor::test {

// Ends the process, which is how a fuzzer reports what it has found.
[[noreturn]] inline void Fail(const std::string& what) {
  std::fprintf(stderr, "fuzzing: %s\n", what.c_str());
  std::abort();
}

inline void Require(bool condition, const std::string& what) {
  if (!condition) {
    Fail(what);
  }
}

using Random = std::minstd_rand;

// Draws choices until the bytes are used up, and the first of each from then on.
class Input {
 public:
  explicit Input(std::span<const std::uint8_t> bytes) : _bytes(bytes) {}

  bool IsUsedUp() const { return _bytes.empty(); }
  std::string Rest() { return {_bytes.begin(), _bytes.end()}; }

  // Up to `most`, from as many bytes as that has, the last one first.
  std::uint64_t UpTo(std::uint64_t most) {
    std::uint64_t number = 0;
    for (std::uint64_t left = most; left != 0 && !IsUsedUp(); left >>= 8U) {
      number = number << 8U | _bytes.back();
      _bytes = _bytes.first(_bytes.size() - 1);
    }
    return most == ~std::uint64_t{0} ? number : number % (most + 1);
  }
  unsigned int Below(unsigned int n) { return static_cast<unsigned int>(UpTo(n - 1)); }
  bool Coin() { return UpTo(1) != 0; }
  template <class T, std::size_t N>
  T OneOf(const T (&choices)[N]) {
    return choices[Below(N)];
  }
  Random Seed() { return Random(static_cast<std::uint32_t>(UpTo(0xFFFF'FFFF))); }

  // A number of rows: a few, or about as many as the kernels' tiles and blocks have.
  unsigned int Rows(unsigned int most) {
    constexpr unsigned int kEdges[] = {0, 1, 8, 16, 64, 128, 192, 256};
    const unsigned int draw = Below(256);
    const unsigned int nearEdge = kEdges[draw % 8] + draw / 8 % 4;
    return std::min(most, draw < 128 ? nearEdge - std::min(nearEdge, 1U) : (draw - 128) / 6);
  }

  double Number();

 private:
  std::span<const std::uint8_t> _bytes;
};

// Numbers at which arithmetic or a comparison may do something else than elsewhere.
constexpr double kMost = std::numeric_limits<double>::max();
constexpr double kSpecial[] = {0.,     -0.,     1.,      -1.,       0.1,      kNaN,      kInf,
                               -kInf,  5e-324,  -5e-324, 0x1p-1022, -99.,     0x1p-537,  1e-160,
                               1e154,  1e155,   1e308,   -1e308,    1.79e308, -1.79e308, 2.,
                               0x1p53, 0x1p-53, 1e8 + 1, 1. / 3.,   kMost,    -kMost};

// A special number, a small one, or any double by its bits.
inline double Input::Number() {
  const unsigned int draw = Below(256);
  if (draw < std::size(kSpecial)) {
    return kSpecial[draw];
  }
  return draw == 0xFF ? std::bit_cast<double>(UpTo(~std::uint64_t{0}))
                      : (static_cast<double>(draw) - 128.) / 7.;
}

// A column's numbers from the first row on: a leading run of one number, then others.
class Numbers {
 public:
  explicit Numbers(Input& input)
      : _kind(input.OneOf({Kind::Few, Kind::Uniform, Kind::Constant, Kind::Special, Kind::Mixed})),
        _run(input.Coin() ? input.Rows(200) : 0),
        _number(input.Number()),
        _random(input.Seed()) {}

  double Next() {
    if (_run > 0) {
      --_run;
      return _number;
    }
    const double u = std::uniform_real_distribution<double>(-1., 1.)(_random);
    const double special = kSpecial[_random() % std::size(kSpecial)];
    switch (_kind) {
      case Kind::Few:
        return std::round(4. * u);
      case Kind::Uniform:
        return u;
      case Kind::Constant:
        return _number;
      case Kind::Special:
        return special;
      case Kind::Mixed:
        return _random() % 16 == 0 ? special : u * _number;
    }
    return 0.;
  }

 private:
  enum class Kind { Few, Uniform, Constant, Special, Mixed };

  Kind _kind;
  unsigned int _run;
  double _number;
  Random _random;
};

// What the cases of several batches have in common.
struct CaseShape {
  unsigned int columns;
  bool isWeighted, isRegWeighted;
  unsigned int groups = 0;                 // 0: cases have none
  std::optional<double> missingCode = {};  // of values that are to be missing here and there

  CaseShape(Input& input, unsigned int mostColumns)
      : columns(1 + input.Below(mostColumns)),
        isWeighted(input.Coin()),
        isRegWeighted(input.Coin()) {}
};

// Some kind of weights: mostly as hosts have them, sometimes none that weighs anything, sometimes
// any numbers whatever.
inline std::vector<double> DrawWeights(Input& input, unsigned int rows) {
  std::vector<double> weights(rows);
  const unsigned int kind = input.Below(8);
  Numbers numbers(input);
  for (double& weight : weights) {
    const double number = numbers.Next();
    weight = kind == 0 ? 0. : kind == 1 ? number : kind == 2 ? number - 0.5 : std::abs(number);
  }
  return weights;
}

// Puts the missing code, a missing zero having either sign, into all columns of every few: by
// chance, up to a row or from it on.
inline void LoseValues(Input& input, double code, Cases& cases) {
  const unsigned int step = 1 + input.Below(9);
  for (unsigned int first = 0; first < step && !input.IsUsedUp(); ++first) {
    const unsigned int kind = input.Below(4);
    const unsigned int edge = input.Below(100);
    Random random = input.Seed();
    for (std::size_t row = 0; row < cases.rows.size(); ++row) {
      const bool isMissing = kind == 1   ? random() % 100 < edge
                             : kind == 2 ? row < edge
                                         : kind == 3 && edge <= row;
      for (std::size_t column = first; isMissing && column < cases.rows[row].size();
           column += step) {
        cases.rows[row][column] = code == 0. && row % 2 == 0 ? -0. : code;
      }
    }
  }
}

// Cases, fewer where they have more columns.
inline Cases DrawCases(Input& input, const CaseShape& shape) {
  const unsigned int most = std::max(9U, 16384 / (shape.columns * shape.columns));
  const unsigned int rows = input.Rows(most);
  Cases cases;
  cases.rows.resize(rows, std::vector<double>(shape.columns));
  for (unsigned int column = 0; column < shape.columns; ++column) {
    Numbers numbers(input);
    for (auto& row : cases.rows) {
      row[column] = numbers.Next();
    }
  }
  if (shape.isWeighted) {
    cases.weights = DrawWeights(input, rows);
  }
  if (shape.isRegWeighted) {
    cases.regWeights = DrawWeights(input, rows);
  }
  if (shape.groups != 0) {
    const unsigned int used = 1 + input.Below(shape.groups);
    const bool isSorted = input.Coin();
    Random random = input.Seed();
    for (unsigned int row = 0; row < rows; ++row) {
      cases.groups.push_back(isSorted ? row * used / rows
                                      : static_cast<unsigned int>(random() % used));
    }
  }
  if (shape.missingCode) {
    LoseValues(input, *shape.missingCode, cases);
  }
  return cases;
}

// Calls an operation of the library with some rounding, which it has to leave, also when it throws.
template <class Operation>
void InSomeRounding(Input& input, const Operation& operation) {
  const int mode = input.OneOf({FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO});
  std::exception_ptr error;
  std::fesetround(mode);
  try {
    operation();
  } catch (...) {
    error = std::current_exception();
  }
  const bool isLeft = std::fegetround() == mode;
  std::fesetround(FE_TONEAREST);
  Require(isLeft, "the host's rounding was not restored");
  if (error) {
    std::rethrow_exception(error);
  }
}

// What a fuzzer does with an input; each defines its own.
void Run(Input& input);

}  // namespace velmor::test
