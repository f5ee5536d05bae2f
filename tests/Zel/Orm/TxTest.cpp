#include "OrmTestSupport.h"

#include <Zel/InvalidOperationException.h>
#include <Zel/Orm/Exception.h>
#include <Zel/Orm/ObjectsChangedEvent.h>
#include <gmock/gmock.h>
#include <stdexcept>
#include <thread>

namespace Zel::Orm::Testing {
namespace {

using ::testing::ElementsAre;

TEST_F(OrmTest, StatesThroughCommitRollbackAndClose) {
    auto person = session->create<Person>();
    EXPECT_EQ(person->state(), Object::stateNew);
    {
        Tx tx(session.get());
        person->save();
        EXPECT_EQ(person->state(), Object::stateSaved);
        tx.commit();
        EXPECT_TRUE(tx.finished());
    }
    EXPECT_EQ(person->state(), Object::stateCommitted);
    EXPECT_FALSE(session->isTx());
    auto loaded = session->get<Employee>(committedEmployee());
    EXPECT_EQ(loaded->state(), Object::stateCommitted);
    std::shared_ptr<Person> fresh;
    {
        Tx tx(session.get());
        person->name = "changed";
        fresh = session->create<Person>();
        session->save();
        EXPECT_EQ(session->objectCount(), 3u);
    } // the destructor rolls back
    EXPECT_TRUE(person->obsolete()) << "written in the rolled-back transaction";
    EXPECT_TRUE(fresh->obsolete());
    EXPECT_TRUE(loaded->commited()) << "only read";
    EXPECT_EQ(session->objectCount(), 1u);
    EXPECT_EQ(factory->create()->get<Person>(person->id())->name.get(), "");
    session->close();
    EXPECT_TRUE(loaded->obsolete());
    EXPECT_FALSE(loaded->valid());
    EXPECT_THROW(loaded->orm(), Exception);
}

TEST_F(OrmTest, NestedTxJoinsAndItsRollbackEndsTheWholeTransaction) {
    auto visible = [&](std::int32_t id) { return factory->create()->object(id, "", false) != nullptr; };
    std::int32_t id = 0;
    {
        Tx outer(session.get());
        {
            Tx inner(session.get());
            EXPECT_TRUE(inner.nested());
            EXPECT_FALSE(outer.nested());
            EXPECT_EQ(session->txNestingLevel(), 2);
            EXPECT_EQ(session->tx(), &outer);
            auto person = session->create<Person>();
            person->save();
            id = person->id();
            inner.commit();
        }
        EXPECT_FALSE(visible(id)) << "the inner commit leaves it to the outer scope";
        outer.commit();
    }
    EXPECT_TRUE(visible(id));

    Tx outer(session.get());
    auto person = session->create<Person>();
    try {
        Tx inner(session.get());
        person->save();
        throw std::runtime_error("failed halfway");
    } catch (const std::runtime_error&) {
    }
    EXPECT_TRUE(outer.finished());
    EXPECT_FALSE(session->isTx());
    EXPECT_TRUE(person->obsolete());
    EXPECT_THROW(outer.commit(), InvalidOperationException);
    EXPECT_FALSE(visible(person->id()));
    auto again = session->beginTx();
    EXPECT_FALSE(again->nested());
}

TEST_F(OrmTest, CommitAnnouncesEachKindOfChangeOnce) {
    const std::int32_t updated = committedEmployee();
    const std::int32_t erased = committedEmployee("Bob");
    std::vector<Variant> seen;
    std::vector<std::string> names;
    events->attach<ObjectsChangedEvent>("orm.objectsChanged", [&](const ObjectsChangedEvent& event) {
        names.push_back(event.name());
        seen.push_back(event.data());
        throw std::runtime_error("a handler's failure must not fail the commit");
    });
    std::shared_ptr<Person> a, b;
    auto changeEachKind = [&] {
        a = session->create<Person>();
        b = session->create<Employee>();
        session->get<Employee>(updated)->salary = 99;
        session->get<Employee>(updated)->name = "Eve";
        session->object(erased)->erase();
        EXPECT_EQ(session->save(), 3);
    };
    Tx tx(session.get());
    changeEachKind();
    session->rollback();
    EXPECT_TRUE(seen.empty()) << "a rollback announces nothing";

    Tx second(session.get());
    changeEachKind();
    second.commit();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_THAT(names, ElementsAre("orm.objectsChanged", "orm.objectsChanged", "orm.objectsChanged"));
    const std::string ab = a->id() < b->id() ? std::to_string(a->id()) + "," + std::to_string(b->id())
                                             : std::to_string(b->id()) + "," + std::to_string(a->id());
    EXPECT_EQ(seen[0].toJson(),
              R"({"action":"created","columns":["age","born","name","remarks","salary"],"objects":[)" + ab +
                  "]}");
    EXPECT_EQ(seen[1].toJson(), R"({"action":"updated","columns":["name","salary"],"objects":[)" +
                                    std::to_string(updated) + "]}");
    EXPECT_EQ(seen[2].toJson(),
              R"({"action":"erased","columns":[],"objects":[)" + std::to_string(erased) + "]}");
    EXPECT_EQ(factory->create()->get<Employee>(updated)->name.get(), "Eve")
        << "committed despite the handler";

    auto named = makeFactory({}, "billing");
    int billing = 0;
    events->attach("billing.objectsChanged", [&](const Events::Event&) { ++billing; });
    auto other = named->create();
    Tx third(other.get());
    other->create<Person>()->save();
    third.commit();
    EXPECT_EQ(billing, 1);
    EXPECT_EQ(seen.size(), 3u);
}

TEST_F(OrmTest, CacheCountsEvictsAndNeverServesAStaleRow) {
    auto small = makeFactory({.cacheCapacity = 2});
    const std::int32_t ids[] = {committedEmployee("A"), committedEmployee("B"), committedEmployee("C")};
    for (std::int32_t id : ids)
        small->create()->object(id);
    auto metrics = small->metrics();
    EXPECT_EQ(metrics.misses, 3u);
    EXPECT_EQ(metrics.evictions, 1u);
    EXPECT_EQ(metrics.size, 2u);
    EXPECT_EQ(metrics.capacity, 2u);
    small->create()->object(ids[2]);
    small->create()->object(ids[0]); // evicted: read again, evicting ids[1], the least recently used
    metrics = small->metrics();
    EXPECT_EQ(metrics.hits, 1u);
    EXPECT_EQ(metrics.misses, 4u);
    EXPECT_EQ(metrics.evictions, 2u);

    // A writer drops the snapshot at once and again at commit, after a reader put the old row back.
    auto writer = small->create();
    auto reader = small->create();
    Tx tx(writer.get());
    writer->get<Employee>(ids[2])->name = "C2";
    writer->save();
    EXPECT_EQ(reader->get<Employee>(ids[2])->name.get(), "C");
    tx.commit();
    EXPECT_EQ(small->create()->get<Employee>(ids[2])->name.get(), "C2");

    // A row read before a drop may be the old one: its put is refused.
    Cache& cache = *small->cache();
    const auto ticket = cache.ticket();
    cache.erase(ids[0]);
    cache.put(ids[0], std::make_shared<Cache::Row>(), ticket);
    EXPECT_EQ(cache.find(ids[0]), nullptr);
}

TEST_F(OrmTest, SessionsOnSeveralThreadsShareTheModelAndTheCache) {
    constexpr int threadCount = 4;
    constexpr int rounds = 25;
    std::vector<std::int32_t> ids;
    for (int t = 0; t < threadCount; ++t)
        ids.push_back(committedEmployee("worker", 0));
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            try {
                auto own = factory->create();
                for (int round = 0; round < rounds; ++round) {
                    for (std::int32_t id : ids)
                        factory->create()->get<Employee>(id); // through the cache
                    Tx tx(own.get());
                    auto mine = own->get<Employee>(ids[t]);
                    mine->salary = mine->salary + 1;
                    mine->save();
                    tx.commit();
                }
            } catch (const std::exception& error) {
                ADD_FAILURE() << error.what();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    auto check = factory->create();
    for (std::int32_t id : ids)
        EXPECT_EQ(check->get<Employee>(id)->salary.get(), rounds) << "never a stale snapshot";
}

TEST_F(OrmTest, AFailureAtAnyStatementOfASaveLeavesNothingAfterRollback) {
    const std::int32_t existing = committedEmployee();
    auto uncached = makeFactory({.cacheCapacity = 0});
    const auto before = dump();
    // Loads first, then (counted from there) the statements of one save of three objects.
    auto attempt = [&](int failAt) {
        session = uncached->create();
        Tx tx(session.get());
        auto employee = session->get<Employee>(existing);
        employee->salary = 1;
        session->create<Employee>()->name = "new";
        session->create<Invoice>()->amount = 5;
        take();
        recorder(*session).failAt = failAt;
        session->save();
        return take().size();
    };
    ASSERT_EQ(attempt(-1), 7u) << "3 inserts for the new employee, 2 for the invoice, touch and update";
    EXPECT_EQ(dump(), before);
    for (int k = 0; k < 7; ++k) {
        SCOPED_TRACE(k);
        EXPECT_THROW(attempt(k), Db::DbException);
        EXPECT_EQ(dump(), before);
    }
}

TEST_F(OrmTest, AConnectionClosedMidTransactionLosesOnlyThatTransaction) {
    const std::int32_t kept = committedEmployee("kept", 1);
    const auto before = dump();
    auto employee = session->get<Employee>(kept);
    {
        Tx tx(session.get());
        employee->salary = 2;
        session->create<Person>()->save();
        session->save();
        session->db()->close();
    }
    EXPECT_TRUE(employee->obsolete());
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(factory->create()->get<Employee>(kept)->salary.get(), 1);
}

class PersonWithNickname : public Person {
public:
    Field<std::string> nickname;
};

class Memo : public Document {
public:
    Field<std::string> body;
};

TEST_F(OrmTest, SchemaCreationIsIdempotentAndAddsWhatIsNew) {
    auto connection = Db::Connection::create(database->connectionString());
    Schema::create(*connection, factory->model());
    SessionFactory grown(nullptr, nullptr,
                         [this] { return Db::Connection::create(database->connectionString()); });
    grown.model()
        .addClass<PersonWithNickname>("Person")
        .table("tblPerson")
        .property("name", &Person::name)
        .property("nickname", &PersonWithNickname::nickname);
    grown.model().addClass<Document>("Document").table("tblDocument").ormTriggers(true);
    grown.model().addClass<Memo>("Memo").base("Document").table("tblMemo").property("body", &Memo::body);
    grown.configured();
    Schema::create(*connection, grown.model());
    Schema::create(*connection, grown.model());
    auto memoSession = grown.create();
    Tx tx(memoSession.get());
    auto memo = memoSession->create<Memo>();
    memo->body = "text";
    memo->save();
    auto person = memoSession->create<PersonWithNickname>();
    person->nickname = "Bo";
    person->save();
    tx.commit();
    EXPECT_EQ(static_cast<std::string>(
                  connection->scalar("SELECT orm_class FROM tblOrmObjects WHERE id=?", {memo->id()})),
              "Memo");
    EXPECT_EQ(static_cast<std::string>(
                  connection->scalar("SELECT nickname FROM tblPerson WHERE id=?", {person->id()})),
              "Bo");
}

} // namespace
} // namespace Zel::Orm::Testing
