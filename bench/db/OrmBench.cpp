// The object mapper against the same SQL work written by hand on the data-access layer, on one
// embedded Firebird connection (forced writes off) in a temporary directory.
//
// Save: 10,000 new objects of a class with one table (so two tables with the object-information
// table) in one transaction. The hand-written peer runs the same two statements per object through
// Db::Command: "INSERT INTO tblOrmObjects ... RETURNING id", then the class table's INSERT.
// Load: 10,000 objects by id in a fresh session with the cache off, inside one transaction. The
// peer runs the class lookup and the joined select, both with `?`, and reads the row into a struct.
//
// After the table it prints objects per second and the mapper's ratio to the peer (1.00x = as fast;
// below 1 the mapper is slower).

#include "DbBench.h"

#include <Zel/Db/Command.h>
#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Orm/Cache.h>
#include <Zel/Orm/Schema.h>
#include <Zel/Orm/Session.h>
#include <Zel/Orm/SessionFactory.h>
#include <Zel/Orm/Tx.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int objectCount = 10000;

class Item : public Zel::Orm::Object {
public:
    Zel::Orm::Field<std::string> name;
    Zel::Orm::Field<int> quantity;
    Zel::Orm::Field<double> price;
};

struct PlainItem {
    std::int32_t id = 0;
    std::string name;
    int quantity = 0;
    double price = 0;
};

// The database file, its one connection and the configured model, made once for every benchmark.
struct Fixture {
    Fixture() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zel-bench-orm-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        directory = pattern;
        const std::string path = (directory / "bench.fdb").string();
        connection = Zel::Db::Connection::create("Database=" + path + ";Create=1;ForcedWrites=0");
        factory = std::make_unique<Zel::Orm::SessionFactory>(
            nullptr, nullptr, [] { return std::unique_ptr<Zel::Db::Connection>(); });
        factory->model()
            .addClass<Item>("Item")
            .table("tblItem")
            .property("name", &Item::name)
            .property("quantity", &Item::quantity)
            .property("price", &Item::price);
        factory->configured();
        Zel::Orm::Schema::create(*connection, factory->model());
    }
    ~Fixture() {
        connection.reset();
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    // A session on the shared connection, with a cache of the given capacity.
    std::unique_ptr<Zel::Orm::Session> session(std::size_t cacheCapacity = 0) const {
        auto made = std::make_unique<Zel::Orm::Session>(
            factory->model(), std::make_shared<Zel::Orm::Cache>(cacheCapacity), nullptr, nullptr);
        made->open(connection);
        return made;
    }

    std::filesystem::path directory;
    std::shared_ptr<Zel::Db::Connection> connection;
    std::unique_ptr<Zel::Orm::SessionFactory> factory;
    std::vector<std::int32_t> ids; // saved objects for the loads
};

// Made on registration and destroyed after the report, before the engine's own exit handlers run.
Fixture* fixtureInstance = nullptr;

Fixture& fixture() {
    if (fixtureInstance == nullptr) fixtureInstance = new Fixture();
    return *fixtureInstance;
}

void zelSave(benchmark::State& state) {
    Fixture& f = fixture();
    for (auto _ : state) {
        auto session = f.session();
        Zel::Orm::Tx tx(session.get());
        for (int i = 0; i < objectCount; ++i) {
            auto item = session->create<Item>();
            item->name = "item";
            item->quantity = i;
            item->price = i * 0.5;
            item->save();
            if (f.ids.size() < objectCount) f.ids.push_back(item->id());
        }
        tx.commit();
    }
    state.SetItemsProcessed(state.iterations() * objectCount);
}

void handSave(benchmark::State& state) {
    Fixture& f = fixture();
    Zel::Db::Connection& db = *f.connection;
    for (auto _ : state) {
        db.begin();
        for (int i = 0; i < objectCount; ++i) {
            const PlainItem item{0, "item", i, i * 0.5};
            const Zel::Db::Command info(
                "INSERT INTO tblOrmObjects (id, orm_class) VALUES (GEN_ID(genOrmObjectId,1), ?) RETURNING id",
                {Zel::Variant("Item")});
            const std::int32_t id = static_cast<int>(info.query(db)->value(std::size_t{0}));
            Zel::Db::Command("INSERT INTO tblItem (id, name, quantity, price) VALUES (?, ?, ?, ?)",
                             {id, item.name, item.quantity, item.price})
                .execute(db);
        }
        db.commit();
    }
    state.SetItemsProcessed(state.iterations() * objectCount);
}

void zelLoad(benchmark::State& state) {
    Fixture& f = fixture();
    if (f.ids.size() < objectCount) {
        state.SkipWithError("Orm/Save/Zel must run first");
        return;
    }
    for (auto _ : state) {
        auto session = f.session(0);
        Zel::Orm::Tx tx(session.get());
        std::int64_t sum = 0;
        for (std::int32_t id : f.ids)
            sum += session->get<Item>(id)->quantity;
        benchmark::DoNotOptimize(sum);
        tx.commit();
    }
    state.SetItemsProcessed(state.iterations() * objectCount);
}

void handLoad(benchmark::State& state) {
    Fixture& f = fixture();
    if (f.ids.size() < objectCount) {
        state.SkipWithError("Orm/Save/Zel must run first");
        return;
    }
    Zel::Db::Connection& db = *f.connection;
    for (auto _ : state) {
        db.begin();
        std::vector<PlainItem> items;
        items.reserve(f.ids.size());
        std::size_t columns[3] = {};
        bool located = false;
        for (std::int32_t id : f.ids) {
            std::string dbClass;
            {
                const auto rows =
                    Zel::Db::Command("SELECT orm_class FROM tblOrmObjects WHERE id=?", {id}).query(db);
                if (rows->eof()) continue;
                dbClass = static_cast<std::string>(rows->value(std::size_t{0}));
            }
            if (dbClass != "Item") continue;
            const auto rows = Zel::Db::Command("SELECT * FROM tblItem t0 WHERE t0.id=?", {id}).query(db);
            if (rows->eof()) continue;
            if (!located) {
                columns[0] = rows->columnIndex("name");
                columns[1] = rows->columnIndex("quantity");
                columns[2] = rows->columnIndex("price");
                located = true;
            }
            items.push_back(PlainItem{id, static_cast<std::string>(rows->value(columns[0])),
                                      static_cast<int>(rows->value(columns[1])),
                                      static_cast<double>(rows->value(columns[2]))});
        }
        benchmark::DoNotOptimize(items.data());
        db.commit();
    }
    state.SetItemsProcessed(state.iterations() * objectCount);
}

void registerBenchmarks() {
    fixture();
    // Each iteration is 10,000 objects and a commit, timed in the process's CPU time, which counts
    // the engine's threads too. Save/Zel runs first (the loads read what it saved) and twice, so
    // that the figures kept are from a warm engine.
    for (int round = 0; round < 2; ++round) {
        benchmark::RegisterBenchmark("Orm/Save/Zel", zelSave)
            ->Unit(benchmark::kMillisecond)
            ->MeasureProcessCPUTime();
        benchmark::RegisterBenchmark("Orm/Save/HandWritten", handSave)
            ->Unit(benchmark::kMillisecond)
            ->MeasureProcessCPUTime();
    }
    benchmark::RegisterBenchmark("Orm/Load/Zel", zelLoad)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
    benchmark::RegisterBenchmark("Orm/Load/HandWritten", handLoad)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    std::printf("\nObject mapper against the same statements written by hand over Zel::Db (same run, one "
                "connection):\n");
    for (const char* work : {"Save", "Load"}) {
        const std::string prefix = std::string("Orm/") + work;
        const double zel = reporter.counter(prefix + "/Zel/process_time", "items_per_second");
        const double peer = reporter.counter(prefix + "/HandWritten/process_time", "items_per_second");
        std::printf(
            "  %s 10,000 objects: Zel %.0f objects/s, hand-written %.0f objects/s; Zel/hand-written %s\n",
            work, zel, peer, Zel::Bench::formatRatio(zel, peer).c_str());
    }
    delete fixtureInstance;
    fixtureInstance = nullptr;
}

const bool added = Zel::Bench::Db::addGroup(
    {"Zel::Orm against the same statements by hand on one embedded Firebird connection", registerBenchmarks,
     printRatios});

} // namespace
