#include <Zel/GenericException.h>

#include <utility>

namespace Zel {

GenericException::GenericException(std::string message) : m_message(std::move(message)) {}

GenericException::~GenericException() = default;

const char* GenericException::what() const noexcept {
    return m_message.c_str();
}

} // namespace Zel
