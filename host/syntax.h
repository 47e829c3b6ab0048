// Syntax library: the tokens of the command that the host is running.
//
// Guarantees:
// - A command's tokens are numbered from 0 (the command word); the last token
//   is always the end-of-command token (type 1), so a cursor never runs out.
// - The cursor: GetPosition() is the number of the current token (0 before the
//   first Next()); SetPosition(p) makes token p the one that the next Next()
//   makes current; Next() returns false when the token it makes current is the
//   end of command, and at the end it stays there. Hence
//   `SetPosition(GetPosition() - 1); Next();` steps back one token.
// - Types and codes: see the tables below; they never change meaning.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

class TokenSequenceBase {
 public:
  enum TokenType : int {
    kEndOfCommand = 1,
    kString = 2,  // a word: keyword or name
    kNumber = 3,
    kQuotedString = 4,
    kDelimiter = 5,
  };

  // SubType() codes that carry a meaning of their own.
  enum TokenCode : int {
    kEquals = 3,
    kSlash = 11,
    kAll = 35,  // the word ALL, in any letter case
    kLeftBracket = 36,
    kRightBracket = 37,
  };

  TokenSequenceBase() = default;
  TokenSequenceBase(const TokenSequenceBase&) = delete;
  TokenSequenceBase& operator=(const TokenSequenceBase&) = delete;
  virtual ~TokenSequenceBase() = default;

  virtual bool Next() = 0;
  virtual std::uint32_t GetPosition() const = 0;
  virtual void SetPosition(std::uint32_t position) = 0;
  virtual int Type() const = 0;
  virtual int SubType() const = 0;
  virtual double NumberValue() const = 0;

  // The current token's text as TokenString gives it.
  virtual std::string Text() const = 0;
};

// The token sequence of the command being run. Constructed with `true` it
// reads the host's current command; an empty command (no current one) holds
// only the end-of-command token.
class VORN_TokenSequence final : public TokenSequenceBase {
 public:
  explicit VORN_TokenSequence(bool currentCommand);
  ~VORN_TokenSequence() override;

  bool Next() override;
  std::uint32_t GetPosition() const override;
  void SetPosition(std::uint32_t position) override;
  int Type() const override;
  int SubType() const override;
  double NumberValue() const override;
  std::string Text() const override;

 private:
  std::unique_ptr<TokenSequenceBase> tokens_;  // the host's cursor
};
