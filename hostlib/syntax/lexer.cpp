#include "hostlib/syntax/lexer.h"

#include <utf8proc.h>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "host/syntax.h"
#include "hostlib/dictionary/names.h"
#include "hostlib/strings/unicode.h"

namespace hostlib::syntax {

using strings::DecodeAt;
using strings::Decoded;

bool IsBlank(std::int32_t codePoint) {
  return codePoint == ' ' || codePoint == '\t' ||
         utf8proc_category(codePoint) == UTF8PROC_CATEGORY_ZS;
}

int DelimiterCode(std::int32_t codePoint) {
  switch (codePoint) {
    case '=':
      return TokenSequenceBase::kEquals;
    case '/':
      return TokenSequenceBase::kSlash;
    case '[':
      return TokenSequenceBase::kLeftBracket;
    case ']':
      return TokenSequenceBase::kRightBracket;
    default:
      return 1000 + codePoint;
  }
}

LineEnd ScanLineEnd(std::string_view line, bool quotes) {
  LineEnd end;
  end.blank = true;
  std::int32_t quote = 0;
  std::size_t lastOffset = 0;
  std::int32_t lastCodePoint = 0;
  int lastColumn = 0;
  int column = 1;
  for (std::size_t offset = 0; offset < line.size(); ++column) {
    const Decoded decoded = DecodeAt(line, offset);
    const std::int32_t c = decoded.valid ? decoded.codePoint : -1;
    if (quote != 0) {
      if (c == quote) {
        const bool doubled = offset + 1 < line.size() && line[offset + 1] == line[offset];
        if (doubled) {
          offset += 2;
          ++column;
          continue;
        }
        quote = 0;
      }
    } else if (quotes && (c == '\'' || c == '"')) {
      quote = c;
    }
    if (!decoded.valid || !IsBlank(c)) {
      end.blank = false;
      lastOffset = offset;
      lastCodePoint = quote != 0 ? 0 : c;  // inside an open quote: no terminator
      lastColumn = column;
    }
    offset += decoded.length;
  }
  if (!end.blank && lastCodePoint == '.') {
    end.terminated = true;
    end.terminator = lastOffset;
    end.terminatorColumn = lastColumn;
  }
  return end;
}

namespace {

bool IsAsciiDigit(std::int32_t c) { return c >= '0' && c <= '9'; }

bool IsControl(std::int32_t c) { return c != '\t' && utf8proc_category(c) == UTF8PROC_CATEGORY_CC; }

std::string Hex(std::int32_t value, int digits) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "%0*X", digits, static_cast<unsigned>(value));
  return buffer;
}

// Walks one line character by character, keeping the column.
class LineReader {
 public:
  explicit LineReader(std::string_view line) : line_(line) {}

  bool AtEnd() const { return offset_ >= line_.size(); }
  std::size_t Offset() const { return offset_; }
  int Column() const { return column_; }
  Decoded Peek() const { return DecodeAt(line_, offset_); }
  // The code point `ahead` characters on; -1 past the end or at a bad byte.
  std::int32_t PeekCodePoint(int ahead = 0) const {
    std::size_t offset = offset_;
    for (int i = 0; i <= ahead; ++i) {
      if (offset >= line_.size()) {
        return -1;
      }
      const Decoded decoded = DecodeAt(line_, offset);
      if (i == ahead) {
        return decoded.valid ? decoded.codePoint : -1;
      }
      offset += decoded.length;
    }
    return -1;
  }
  void Advance() {
    offset_ += Peek().length;
    ++column_;
  }

 private:
  std::string_view line_;
  std::size_t offset_ = 0;
  int column_ = 1;
};

class Lexer {
 public:
  Lexer(std::string_view line, int lineNumber, std::uint32_t offsetBase, std::vector<Token>& tokens,
        std::vector<SourcePosition>& positions, std::vector<LexError>& errors)
      : line_(line),
        lineNumber_(lineNumber),
        offsetBase_(offsetBase),
        reader_(line),
        tokens_(tokens),
        positions_(positions),
        errors_(errors) {}

  void Run() {
    while (!reader_.AtEnd()) {
      const Decoded decoded = reader_.Peek();
      const std::int32_t c = decoded.codePoint;
      if (!decoded.valid) {
        InvalidByte();
        reader_.Advance();
      } else if (IsBlank(c)) {
        reader_.Advance();
      } else if (IsControl(c)) {
        ControlCharacter(c);
        reader_.Advance();
      } else if (c == '\'' || c == '"') {
        QuotedString(c);
      } else if (StartsNumber(0) || ((c == '-' || c == '+') && SignAllowed() && StartsNumber(1))) {
        Number();
      } else if (dictionary::IsNameStart(c)) {
        Word();
      } else {
        const Start start = Begin();
        reader_.Advance();
        Emit(start, TokenSequenceBase::kDelimiter, DelimiterCode(c));
      }
    }
  }

 private:
  struct Start {
    std::size_t offset;
    int column;
  };

  Start Begin() const { return {reader_.Offset(), reader_.Column()}; }

  Token& Emit(const Start& start, int type, int code) {
    Token token;
    token.type = type;
    token.code = code;
    token.offset = offsetBase_ + static_cast<std::uint32_t>(start.offset);
    token.length = static_cast<std::uint32_t>(reader_.Offset() - start.offset);
    tokens_.push_back(token);
    positions_.push_back({lineNumber_, start.column});
    return tokens_.back();
  }

  void Error(LexErrorKind kind, int column, std::string message) {
    errors_.push_back({kind, {lineNumber_, column}, std::move(message)});
  }

  void InvalidByte() {
    const auto byte = static_cast<unsigned char>(line_[reader_.Offset()]);
    Error(LexErrorKind::kInvalidUtf8, reader_.Column(),
          "The byte 0x" + Hex(byte, 2) + " is not valid UTF-8 text.");
  }

  void ControlCharacter(std::int32_t c) {
    Error(LexErrorKind::kControlCharacter, reader_.Column(),
          "The control character U+" + Hex(c, 4) + " is not allowed in a command.");
  }

  // The sign belongs to a number only after a delimiter or at the start.
  bool SignAllowed() const {
    return tokens_.empty() || tokens_.back().type == TokenSequenceBase::kDelimiter;
  }

  // A number starts `ahead` characters on: a digit, or a point and a digit.
  bool StartsNumber(int ahead) const {
    const std::int32_t c = reader_.PeekCodePoint(ahead);
    return IsAsciiDigit(c) || (c == '.' && IsAsciiDigit(reader_.PeekCodePoint(ahead + 1)));
  }

  void SkipDigits() {
    while (IsAsciiDigit(reader_.PeekCodePoint())) {
      reader_.Advance();
    }
  }

  void Number() {
    const Start start = Begin();
    if (!IsAsciiDigit(reader_.PeekCodePoint()) && reader_.PeekCodePoint() != '.') {
      reader_.Advance();  // the sign
    }
    SkipDigits();
    if (reader_.PeekCodePoint() == '.') {
      reader_.Advance();
      SkipDigits();
    }
    const std::int32_t e = reader_.PeekCodePoint();
    if (e == 'e' || e == 'E') {
      const std::int32_t next = reader_.PeekCodePoint(1);
      const bool signed_ = next == '+' || next == '-';
      if (IsAsciiDigit(reader_.PeekCodePoint(signed_ ? 2 : 1))) {
        reader_.Advance();
        if (signed_) {
          reader_.Advance();
        }
        SkipDigits();
      }
    }
    Token& token = Emit(start, TokenSequenceBase::kNumber, 0);
    token.number = NumberValue(line_.substr(start.offset, reader_.Offset() - start.offset));
  }

  static double NumberValue(std::string_view text) {
    const bool negative = text.front() == '-';
    if (text.front() == '-' || text.front() == '+') {
      text.remove_prefix(1);
    }
    double value = 0.0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
      value = Overflows(text) ? HUGE_VAL : 0.0;
    }
    return negative ? -value : value;
  }

  // For a number out of the range of double: whether it is too large (rather
  // than too close to zero), from its decimal exponent.
  static bool Overflows(std::string_view text) {
    const std::size_t e = text.find_first_of("eE");
    const std::string_view mantissa = text.substr(0, e);
    long long exponent = 0;
    if (e != std::string_view::npos) {
      std::string_view digits = text.substr(e + 1);
      const bool negative = digits.front() == '-';
      if (digits.front() == '-' || digits.front() == '+') {
        digits.remove_prefix(1);
      }
      if (std::from_chars(digits.data(), digits.data() + digits.size(), exponent).ec !=
          std::errc()) {
        return !negative;
      }
      exponent = negative ? -exponent : exponent;
    }
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const std::size_t first = mantissa.find_first_of("123456789");
    if (first == std::string_view::npos) {
      return false;
    }
    const long long magnitude = first < point ? static_cast<long long>(point - first)
                                              : -static_cast<long long>(first - point);
    return magnitude + exponent > 0;
  }

  void Word() {
    const Start start = Begin();
    reader_.Advance();
    while (dictionary::IsNamePart(reader_.PeekCodePoint())) {
      reader_.Advance();
    }
    const std::string_view text = line_.substr(start.offset, reader_.Offset() - start.offset);
    Emit(start, TokenSequenceBase::kString,
         dictionary::EqualsAsciiNoCase(text, "ALL") ? TokenSequenceBase::kAll : 0);
  }

  void QuotedString(std::int32_t quote) {
    const Start start = Begin();
    reader_.Advance();
    while (true) {
      if (reader_.AtEnd()) {
        Error(LexErrorKind::kUnclosedQuote, start.column,
              "The quoted string is not closed on its line.");
        break;
      }
      const Decoded decoded = reader_.Peek();
      if (!decoded.valid) {
        InvalidByte();
      } else if (IsControl(decoded.codePoint)) {
        ControlCharacter(decoded.codePoint);
      } else if (decoded.codePoint == quote) {
        reader_.Advance();
        if (reader_.PeekCodePoint() != quote) {
          break;
        }
      }
      reader_.Advance();
    }
    Emit(start, TokenSequenceBase::kQuotedString, 0);
  }

  std::string_view line_;
  int lineNumber_;
  std::uint32_t offsetBase_;
  LineReader reader_;
  std::vector<Token>& tokens_;
  std::vector<SourcePosition>& positions_;
  std::vector<LexError>& errors_;
};

}  // namespace

void LexLine(std::string_view line, int lineNumber, std::uint32_t offsetBase,
             std::vector<Token>& tokens, std::vector<SourcePosition>& positions,
             std::vector<LexError>& errors) {
  Lexer(line, lineNumber, offsetBase, tokens, positions, errors).Run();
}

}  // namespace hostlib::syntax
