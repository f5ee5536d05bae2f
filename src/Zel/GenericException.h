#pragma once

#include <Zel/Export.h>

#include <exception>
#include <string>

namespace Zel {

// Root of every exception the library throws. Catch this to handle any Zel failure; the message
// follows one form: a short sentence, then " | key=value" pairs.
class ZEL_API GenericException : public std::exception {
public:
    explicit GenericException(std::string message);
    ~GenericException() override;

    const char* what() const noexcept override;
    const std::string& message() const noexcept { return m_message; }

private:
    std::string m_message;
};

} // namespace Zel
