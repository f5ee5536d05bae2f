#pragma once

#include <Zel/Variant.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Zel::Db {

class Recordset;

// A statement prepared by a backend, owned by its connection's statement cache. Backends implement
// it; users go through Connection and Command.
//
// A recordset returned by query() holds the statement (through shared_from_this) and keeps it busy
// until the recordset is destroyed or reads its last row; the connection prepares a second statement
// for the same text while the first one is busy, so nested queries of one text work.
class ZEL_API Statement : public std::enable_shared_from_this<Statement> {
public:
    virtual ~Statement();

    // Rows affected, -1 where the driver cannot tell.
    virtual std::int64_t execute(const std::vector<Variant>& params) = 0;
    virtual std::unique_ptr<Recordset> query(const std::vector<Variant>& params) = 0;
    // One execution per row of parameters. This default runs execute() in a loop; backends with
    // parameter arrays send the rows together.
    virtual std::int64_t executeBatch(const std::vector<std::vector<Variant>>& rows);
    // Whether a recordset still reads from this statement.
    virtual bool busy() const noexcept = 0;

    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

protected:
    Statement() = default;
};

} // namespace Zel::Db
