#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Orm/Exception.h>
#include <Zel/Orm/Model/Model.h>
#include <Zel/Orm/Schema.h>
#include <algorithm>
#include <cctype>
#include <set>
#include <string>
#include <vector>

namespace Zel::Orm {

namespace {

// Firebird keeps unquoted names in upper case.
std::string upper(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

bool exists(Db::Connection& connection, const char* sql, const std::string& name) {
    return !connection.query(sql, {Variant(upper(name))})->eof();
}

bool tableExists(Db::Connection& connection, const std::string& table) {
    return exists(connection, "SELECT 1 FROM RDB$RELATIONS WHERE RDB$RELATION_NAME = ?", table);
}

std::set<std::string> columnsOf(Db::Connection& connection, const std::string& table) {
    std::set<std::string> columns;
    for (auto rows = connection.query("SELECT TRIM(RDB$FIELD_NAME) FROM RDB$RELATION_FIELDS "
                                      "WHERE RDB$RELATION_NAME = ?",
                                      {Variant(upper(table))});
         !rows->eof(); rows->next()) {
        columns.insert(upper(static_cast<std::string>(rows->value(std::size_t{0}))));
    }
    return columns;
}

std::string triggerName(const std::string& table, const char* suffix) {
    std::string name = "TRG_" + upper(table) + suffix;
    // Firebird 3 names hold 31 characters.
    if (name.size() > 31) throw Exception("ORM Schema: trigger name too long for the table | table=" + table);
    return name;
}

std::string quoted(const std::string& text) {
    std::string result = "'";
    for (char c : text) {
        result += c;
        if (c == '\'') result += '\'';
    }
    return result + "'";
}

} // namespace

void Schema::create(Db::Connection& connection, const Model::Model& model) {
    if (!model.configured()) ZEL_THROW_INVALID_OPERATION();
    const std::string& info = model.objectInfoTable();
    if (!exists(connection, "SELECT 1 FROM RDB$GENERATORS WHERE RDB$GENERATOR_NAME = ?",
                model.idSequence())) {
        connection.execute("CREATE SEQUENCE " + model.idSequence());
    }
    if (!tableExists(connection, info)) {
        connection.execute("CREATE TABLE " + info +
                           " (id INTEGER NOT NULL PRIMARY KEY, orm_class VARCHAR(64))");
    }
    if (!tableExists(connection, "tblOrmLocks")) {
        connection.execute("CREATE TABLE tblOrmLocks (id INTEGER NOT NULL PRIMARY KEY)");
    }

    // Parents before children: a table refers to its parent's.
    std::vector<const Model::ModelClass*> classes;
    for (const auto& [name, modelClass] : model.classes())
        classes.push_back(modelClass.get());
    std::stable_sort(classes.begin(), classes.end(),
                     [](const auto* a, const auto* b) { return a->chain().size() < b->chain().size(); });

    for (const Model::ModelClass* modelClass : classes) {
        const std::string& table = modelClass->table();
        const Model::ModelClass* base = modelClass->base();
        const std::string& parent = base->isRoot() ? info : base->table();
        if (!tableExists(connection, table)) {
            std::string sql = "CREATE TABLE " + table + " (id INTEGER NOT NULL PRIMARY KEY REFERENCES " +
                              parent + " (id) ON DELETE CASCADE";
            for (const auto& property : modelClass->properties()) {
                sql += ", " + property->column() + " " + property->sqlType();
            }
            connection.execute(sql + ")");
        } else {
            const std::set<std::string> columns = columnsOf(connection, table);
            for (const auto& property : modelClass->properties()) {
                if (!columns.contains(upper(property->column()))) {
                    connection.execute("ALTER TABLE " + table + " ADD " + property->column() + " " +
                                       property->sqlType());
                }
            }
        }
        if (!modelClass->ormTriggers()) continue;
        // Inserts run down the chain, so the most derived class's trigger records the class last.
        connection.execute("CREATE OR ALTER TRIGGER " + triggerName(table, "_ORMI") + " FOR " + table +
                           " ACTIVE BEFORE INSERT POSITION 0 AS BEGIN UPDATE OR INSERT INTO " + info +
                           " (id, orm_class) VALUES (NEW.id, " + quoted(modelClass->dbClassName()) +
                           ") MATCHING (id); END");
        if (base->isRoot()) {
            connection.execute("CREATE OR ALTER TRIGGER " + triggerName(table, "_ORMD") + " FOR " + table +
                               " ACTIVE AFTER DELETE POSITION 0 AS BEGIN DELETE FROM " + info +
                               " WHERE id=OLD.id; END");
        }
    }
}

} // namespace Zel::Orm
