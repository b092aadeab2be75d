#pragma once
// What a token engine operation hands back to its caller: always its 64-bit result code, and for
// some operations the data it produced. Results own their data; texts (passwords, PINs) are wiped
// when the result is destroyed.

#include <string>
#include <utility>
#include <vector>

#include "account/User.h"
#include "common/SecureWipe.h"
#include "logging/ExtendedResult.h"
#include "tokenengine/Token.h"

namespace lm2 {

class AsyncResult {
 public:
  explicit AsyncResult(ExtendedResult code) : m_code(code) {}
  virtual ~AsyncResult() = default;
  ExtendedResult getResultCode() const noexcept { return m_code; }
  bool succeeded() const noexcept { return result::succeeded(m_code); }

 private:
  ExtendedResult m_code;
};

template <class Data>
class AsyncResultWithData : public AsyncResult {
 public:
  AsyncResultWithData(ExtendedResult code, Data data) : AsyncResult(code), m_data(std::move(data)) {}
  const Data& getData() const noexcept { return m_data; }

 private:
  Data m_data;
};

// A text result is a password or a PIN: wiped with the result.
template <>
class AsyncResultWithData<std::wstring> : public AsyncResult {
 public:
  AsyncResultWithData(ExtendedResult code, std::wstring text) : AsyncResult(code), m_data(std::move(text)) {
    secureWipe(text);  // a moved-from short string keeps its characters in its inline buffer
  }
  ~AsyncResultWithData() override { secureWipe(m_data); }
  const std::wstring& getData() const noexcept { return m_data; }

 private:
  std::wstring m_data;
};

class AsyncResultGetTokenList : public AsyncResult {
 public:
  AsyncResultGetTokenList(ExtendedResult code, std::vector<Token> tokens)
      : AsyncResult(code), m_tokens(std::move(tokens)) {}
  const std::vector<Token>& getTokens() const noexcept { return m_tokens; }

 private:
  std::vector<Token> m_tokens;
};

class AsyncResultListUsers : public AsyncResult {
 public:
  AsyncResultListUsers(ExtendedResult code, std::vector<User> users)
      : AsyncResult(code), m_users(std::move(users)) {}
  const std::vector<User>& getUsers() const noexcept { return m_users; }

 private:
  std::vector<User> m_users;
};

}  // namespace lm2
