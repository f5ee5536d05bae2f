#pragma once

#include <Zel/Db/Firebird/Detail/Session.h>
#include <Zel/Variant.h>
#include <cstdint>
#include <string>
#include <vector>

namespace Zel::Db::Firebird::Detail {

// Writes a statement's parameters into an input message. A value that the parameter's declared
// type holds as it is (an integer in range for an integer column, a string that fits a VARCHAR,
// a double for a DOUBLE PRECISION, ...) travels in that type, which the engine takes without a
// conversion. Any other value travels typed after its Variant, not after the statement: the engine
// then converts it to the column's type and reports what does not fit ("conversion error", "string
// right truncation") as it would for a literal. A null keeps the declared type. Strings and
// binaries of up to 32,765 bytes travel inline as VARCHAR (UTF8 or OCTETS), longer ones as blobs
// created in the statement's transaction.
//
// Each distinct list of parameter types (a string's length counts by powers of two) gets its own
// message format, built once and kept, so repeated executions allocate nothing.
class ParameterBinder {
public:
    // Takes a reference to the statement's input metadata.
    ParameterBinder(Session& session, Fb::IMessageMetadata* prepared);
    ~ParameterBinder();

    ParameterBinder(const ParameterBinder&) = delete;
    ParameterBinder& operator=(const ParameterBinder&) = delete;

    unsigned count() const noexcept { return m_count; }
    // DbException "Db: wrong number of parameters ..." unless `given` is count().
    void requireCount(std::size_t given, const std::string& sql) const;
    // DbException for a wrong number of values or a value that cannot be bound (the message names
    // `sql`). Blobs are created in `transaction`.
    void bind(const std::vector<Variant>& values, Fb::ITransaction* transaction, const std::string& sql);
    // The format and buffer of the last bind.
    Fb::IMessageMetadata* metadata() const noexcept { return m_metadata; }
    // Not const only because the engine's interface does not say it only reads it.
    unsigned char* buffer() noexcept { return reinterpret_cast<unsigned char*>(m_buffer.data()); }

private:
    // A parameter as the prepared statement describes it.
    struct Declared {
        unsigned type = 0;
        unsigned length = 0;
        int scale = 0;
        unsigned charSet = 0;
    };
    struct Format {
        std::vector<std::uint16_t> signature;
        Fb::IMessageMetadata* metadata = nullptr;
        std::vector<unsigned> offsets;
        std::vector<unsigned> nullOffsets;
        unsigned length = 0;
    };

    std::uint16_t signatureOf(const Variant& value, std::size_t index, const std::string& sql);
    bool fitsDeclared(const Variant& value, const Declared& declared) const;
    Format& format(const std::string& sql);
    void write(const Format& format, std::size_t index, const Variant& value, Fb::ITransaction* transaction,
               const std::string& sql);
    void writeBlob(unsigned char* target, const void* data, std::size_t size, Fb::ITransaction* transaction,
                   const std::string& sql);

    Session& m_session;
    Fb::IMessageMetadata* m_prepared;
    unsigned m_count;
    std::vector<Declared> m_declared;
    // Most recently used first; a few at most.
    std::vector<Format> m_formats;
    std::vector<std::uint16_t> m_signature;
    // The JSON text of map and vector values, kept until the statement ran.
    std::vector<std::string> m_texts;
    Fb::IMessageMetadata* m_metadata = nullptr;
    std::vector<std::uint64_t> m_buffer; // 8-byte aligned for the engine's int64 and double fields
};

} // namespace Zel::Db::Firebird::Detail
