// zel-orm-example: the object mapper on an embedded Firebird database.
//
//   zel-orm-example [database.fdb]
//
// Declares Customer and VipCustomer (one inheritance chain, one table per class), creates what the
// schema lacks in the file (./zel-orm-example.fdb by default, created when missing), then saves,
// loads, changes and erases objects, printing each step and the change announcements. Every run
// leaves the database as it found it, so it runs again and again on the same file.
#include <Zel/Db/Connection.h>
#include <Zel/Events/Manager.h>
#include <Zel/GenericException.h>
#include <Zel/Orm/ObjectsChangedEvent.h>
#include <Zel/Orm/Schema.h>
#include <Zel/Orm/Session.h>
#include <Zel/Orm/SessionFactory.h>
#include <Zel/Orm/Tx.h>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

namespace {

class Customer : public Zel::Orm::Object {
public:
    Zel::Orm::Field<std::string> name;
    Zel::Orm::Field<std::string> email;
    Zel::Orm::Field<Zel::Date> since;

    std::string displayName() const override { return name.get() + " <" + email.get() + ">"; }
};

class VipCustomer : public Customer {
public:
    Zel::Orm::Field<double> discount;
    Zel::Orm::Field<std::optional<std::string>> accountManager;

    std::string displayName() const override {
        return Customer::displayName() + ", VIP at " + std::to_string(static_cast<int>(discount * 100)) + "%";
    }
};

void declare(Zel::Orm::Model::Model& model) {
    model.addClass<Customer>("Customer")
        .table("tblCustomer")
        .property("name", &Customer::name)
        .property("email", &Customer::email, {.sqlType = "VARCHAR(320)"})
        .property("since", &Customer::since);
    model.addClass<VipCustomer>("VipCustomer")
        .base("Customer")
        .table("tblVipCustomer")
        .property("discount", &VipCustomer::discount)
        .property("accountManager", &VipCustomer::accountManager, {.column = "account_manager"});
}

void show(const char* step, const Zel::Orm::Object& object) {
    std::cout << step << " #" << object.id() << " " << object.modelClass()->name() << ": "
              << object.displayName() << "\n";
}

} // namespace

int main(int argc, char** argv) {
    const std::string path = argc > 1 ? argv[1] : "./zel-orm-example.fdb";
    try {
        if (!std::filesystem::exists(path)) {
            std::cout << "creating " << path << "\n";
            Zel::Db::Connection::create("Database=" + path + ";Create=1")->close();
        }

        auto events = std::make_shared<Zel::Events::Manager>();
        events->attach<Zel::Orm::ObjectsChangedEvent>(
            "orm.objectsChanged", [](const Zel::Orm::ObjectsChangedEvent& event) {
                std::cout << "  announced: " << event.data().toJson() << "\n";
            });

        Zel::Orm::SessionFactory factory(nullptr, events,
                                         [path] { return Zel::Db::Connection::create(path); });
        declare(factory.model());
        factory.configured();
        Zel::Orm::Schema::create(*Zel::Db::Connection::create(path), factory.model());

        auto session = factory.create();
        std::int32_t adaId = 0;
        std::int32_t graceId = 0;
        {
            Zel::Orm::Tx tx(session.get());
            auto ada = session->create<Customer>();
            ada->name = "Ada Lovelace";
            ada->email = "ada@example.org";
            ada->since = Zel::Date(1843, 9, 1);
            auto grace = session->create<VipCustomer>();
            grace->name = "Grace Hopper";
            grace->email = "grace@example.org";
            grace->discount = 0.10;
            std::cout << "saving " << session->save() << " new objects\n";
            tx.commit();
            adaId = ada->id();
            graceId = grace->id();
            show("saved", *ada);
            show("saved", *grace);
        }

        // A second session reads the row and leaves a snapshot in the factory's shared cache; a third
        // builds its own object from that snapshot without a query.
        auto reader = factory.create();
        auto grace = reader->get<Customer>(graceId); // a VipCustomer, loaded through its base class
        show("loaded", *grace);
        show("loaded again", *factory.create()->get<Customer>(graceId));
        const auto metrics = factory.metrics();
        std::cout << "cache: " << metrics.hits << " hit(s), " << metrics.misses << " miss(es)\n";

        {
            Zel::Orm::Tx tx(reader.get());
            auto vip = std::static_pointer_cast<VipCustomer>(grace);
            vip->discount = 0.15;
            vip->accountManager = "Charles";
            vip->save();
            tx.commit();
            show("changed", *vip);
        }

        const auto rows = reader->queryNoFormat("SELECT COUNT(*) FROM tblCustomer");
        std::cout << "customers in the database: " << static_cast<std::string>(rows->value(std::size_t{0}))
                  << "\n";

        {
            Zel::Orm::Tx tx(reader.get());
            reader->object(adaId)->erase();
            grace->erase();
            tx.commit();
        }
        std::cout << "erased both; loading #" << adaId << " again gives "
                  << (factory.create()->object(adaId, "", false) ? "an object" : "nothing") << "\n";
        return 0;
    } catch (const Zel::GenericException& error) {
        std::cerr << "zel-orm-example: " << error.message() << "\n";
        return 1;
    }
}
