// The base of the library's exceptions: failures the caller must see, such as a thread that
// cannot be created. Input errors never throw.
#pragma once

#include <exception>
#include <string>

namespace basicutil {

// The root of the library's exceptions: a message, and a type name for reports.
class BaseException : public std::exception {
  public:
    // An exception carrying `message`.
    explicit BaseException(std::string message) : _message(std::move(message)) {}
    const char* what() const noexcept override { return _message.c_str(); }  // the message
    // The exception's type name for reports; "BaseException" unless a subclass names itself.
    virtual const char* typeName() const noexcept;

  private:
    std::string _message;
};

}  // namespace basicutil
