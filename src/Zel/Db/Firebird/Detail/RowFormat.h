#pragma once

#include <Zel/Db/Firebird/Detail/Session.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Variant.h>
#include <string>
#include <vector>

namespace Zel::Db::Firebird::Detail {

// The layout of a statement's output message as the engine describes it, and the conversion of
// its fields into Variants (see Connection for the rules). Fetches write straight into a buffer of
// this layout; nothing is converted until a value is asked for.
class RowFormat {
public:
    RowFormat() = default;
    RowFormat(Session& session, Fb::IMessageMetadata* metadata, const std::string& sql);

    const std::vector<Recordset::Column>& columns() const noexcept { return m_columns; }
    std::size_t size() const noexcept { return m_fields.size(); }
    unsigned messageLength() const noexcept { return m_messageLength; }

    // Blobs are read in `transaction`, which must be the one the row was fetched in.
    Variant read(Session& session, const unsigned char* message, std::size_t index,
                 Fb::ITransaction* transaction, const std::string& sql) const;

private:
    struct Field {
        unsigned type = 0;
        unsigned offset = 0;
        unsigned nullOffset = 0;
        unsigned length = 0;
        int scale = 0;
        int subType = 0;
        unsigned charSet = 0;
    };

    std::vector<Field> m_fields;
    std::vector<Recordset::Column> m_columns;
    unsigned m_messageLength = 0;
};

} // namespace Zel::Db::Firebird::Detail
