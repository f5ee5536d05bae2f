#pragma once

#include "../Db/TestDatabase.h"

#include <Zel/Db/ConnectionDecorator.h>
#include <Zel/Db/DbException.h>
#include <Zel/Events/Manager.h>
#include <Zel/Orm/Field.h>
#include <Zel/Orm/Object.h>
#include <Zel/Orm/Schema.h>
#include <Zel/Orm/Session.h>
#include <Zel/Orm/SessionFactory.h>
#include <Zel/Orm/Tx.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zel::Orm::Testing {

// Person <- Employee: a chain of two tables without ORM triggers. Document <- Invoice: with them.
// Note: one table with a field of every supported type.
class Person : public Object {
public:
    Field<std::string> name;
    Field<int> age;
    Field<std::optional<Date>> born;
};

class Employee : public Person {
public:
    Field<double> salary;
    Field<std::optional<std::string>> notes;
};

class Document : public Object {
public:
    Field<std::string> title;
};

class Invoice : public Document {
public:
    Field<std::int64_t> amount;
};

class Note : public Object {
public:
    Field<bool> done;
    Field<short> priority;
    Field<std::int64_t> big;
    Field<std::string> text;
    Field<DateTime> at;
    Field<LongBinary> data;
    Field<std::optional<int>> maybe;
};

inline void declare(Model::Model& model) {
    model.addClass<Person>("Person")
        .table("tblPerson")
        .property("name", &Person::name)
        .property("age", &Person::age)
        .property("born", &Person::born);
    model.addClass<Employee>("Employee")
        .base("Person")
        .table("tblEmployee")
        .property("salary", &Employee::salary)
        .property("notes", &Employee::notes, {.column = "remarks"});
    model.addClass<Document>("Document")
        .table("tblDocument")
        .ormTriggers(true)
        .property("title", &Document::title);
    model.addClass<Invoice>("Invoice")
        .base("Document")
        .table("tblInvoice")
        .property("amount", &Invoice::amount);
    model.addClass<Note>("Note")
        .table("tblNote")
        .property("done", &Note::done)
        .property("priority", &Note::priority)
        .property("big", &Note::big)
        .property("text", &Note::text, {.sqlType = "BLOB SUB_TYPE TEXT"})
        .property("at", &Note::at, {.column = "stamp"})
        .property("data", &Note::data)
        .property("maybe", &Note::maybe);
}

// Records the text of every statement it passes on; with failAt set, throws instead of passing on
// the statement of that (0-based) number.
class Recorder : public Db::ConnectionDecorator {
public:
    using ConnectionDecorator::ConnectionDecorator;
    using ConnectionDecorator::execute;
    using ConnectionDecorator::query;

    std::int64_t execute(const Db::Command& command) override {
        record(command);
        return ConnectionDecorator::execute(command);
    }
    std::unique_ptr<Db::Recordset> query(const Db::Command& command) override {
        record(command);
        return ConnectionDecorator::query(command);
    }
    std::vector<std::string> take() { return std::exchange(statements, {}); }

    std::vector<std::string> statements;
    int failAt = -1;

private:
    void record(const Db::Command& command) {
        if (failAt == static_cast<int>(statements.size())) {
            failAt = -1;
            throw Db::DbException("Db: injected failure | sql=" + command.sql());
        }
        statements.push_back(command.sql());
    }
};

// A fresh Firebird database with the test model's schema; each session's connection is recorded.
class OrmTest : public ::testing::Test {
protected:
    void SetUp() override {
        factory = makeFactory({});
        Schema::create(*Db::Connection::create(database->connectionString()), factory->model());
        session = factory->create();
    }

    std::unique_ptr<SessionFactory> makeFactory(Config config, const std::string& modelName = {}) {
        auto made = std::make_unique<SessionFactory>(
            nullptr, events,
            [this]() -> std::unique_ptr<Db::Connection> {
                return std::make_unique<Recorder>(Db::Connection::create(database->connectionString()));
            },
            std::move(config));
        made->model().setName(modelName);
        declare(made->model());
        made->configured();
        return made;
    }

    static Recorder& recorder(Session& of) { return static_cast<Recorder&>(*of.db()); }
    std::vector<std::string> take() { return recorder(*session).take(); }

    // Every row of every table, for comparing the whole database before and after.
    std::vector<std::string> dump() {
        auto connection = Db::Connection::create(database->connectionString());
        std::vector<std::string> rows;
        for (const char* table :
             {"tblOrmObjects", "tblPerson", "tblEmployee", "tblDocument", "tblInvoice", "tblOrmLocks"}) {
            for (auto row = connection->query(std::string("SELECT * FROM ") + table + " ORDER BY id");
                 !row->eof(); row->next()) {
                std::string text = table;
                for (std::size_t i = 0; i < row->columnCount(); ++i)
                    text += "|" + static_cast<std::string>(row->value(i));
                rows.push_back(text);
            }
        }
        return rows; // sequences are outside transactions by design, so they are left out
    }

    // The id of a committed T, filled by `fill` in a session of its own.
    template <class T>
    std::int32_t committed(const std::function<void(T&)>& fill = {}) {
        auto other = factory->create();
        Tx tx(other.get());
        auto object = other->create<T>();
        if (fill) fill(*object);
        object->save();
        tx.commit();
        return object->id();
    }
    std::int32_t committedEmployee(const std::string& name = "Ada", double salary = 10) {
        return committed<Employee>([&](Employee& employee) {
            employee.name = name;
            employee.salary = salary;
        });
    }

    // The rows of `table` with this id, read on a connection of its own.
    std::int64_t rowCount(const std::string& table, std::int32_t id) {
        return static_cast<std::int64_t>(Db::Connection::create(database->connectionString())
                                             ->scalar("SELECT COUNT(*) FROM " + table + " WHERE id=?", {id}));
    }

    std::unique_ptr<ZelTest::TestDatabase> database = ZelTest::makeFirebirdDatabase();
    std::shared_ptr<Events::Manager> events = std::make_shared<Events::Manager>();
    std::unique_ptr<SessionFactory> factory;
    std::shared_ptr<Session> session;
};

} // namespace Zel::Orm::Testing
