#ifndef ORVANE_INTERFACES_BASEEXCEPTION_H
#define ORVANE_INTERFACES_BASEEXCEPTION_H

#include <exception>
#include <string>

// Root of the exceptions shared by the three libraries: a message, a heap copy of
// the exception (Clone) and a throw of its concrete type (Raise).
class BaseException : public std::exception {
public:
    explicit BaseException(const std::string& message);
    // Takes over the what() text of any standard exception.
    explicit BaseException(const std::exception& source);
    ~BaseException() override;

    const char* what() const noexcept override;
    virtual BaseException* Clone() const = 0;
    [[noreturn]] virtual void Raise() const = 0;

private:
    std::string message;
};

// Clone and Raise for the concrete exception type E, which derives from
// BaseExceptionSimple<E>.
template <typename E>
class BaseExceptionSimple : public BaseException {
public:
    using BaseException::BaseException;

    BaseException* Clone() const override { return new E(static_cast<const E&>(*this)); }
    [[noreturn]] void Raise() const override { throw static_cast<const E&>(*this); }
};

#endif
