#include "TestHost.h"

#include <Zel/Factory.h>
#include <Zel/GenericException.h>
#include <Zel/NoFactoryException.h>
#include <Zel/ServiceLocator.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {
struct Animal {
    virtual ~Animal() = default;
    virtual std::string sound() const = 0;
};
struct Dog : Animal {
    std::string sound() const override { return "woof"; }
};
struct Engine {
    int power = 7;
};

} // namespace

TEST(ServiceLocatorTest, AddGetAndDuplicates) {
    Zel::ServiceLocator locator;
    auto engine = std::make_shared<Engine>();
    locator.add(engine);
    EXPECT_EQ(locator.get<Engine>(), engine);
    EXPECT_EQ(locator.get<Engine>(typeid(Engine).name()), engine);
    EXPECT_EQ(locator.get<Dog>(), nullptr);

    const std::string reference = typeid(Engine).name();
    EXPECT_EQ(messageOf<Zel::GenericException>([&] { locator.add(std::make_shared<Engine>()); }),
              "Service Locator: instance already exists | reference=" + reference);
    EXPECT_EQ(locator.get<Engine>(), engine); // the first one stays
    EXPECT_EQ(messageOf<Zel::GenericException>([&] { locator.get<Dog>(reference); }),
              "Service Locator: invalid instance type | reference=" + reference);

    std::weak_ptr<Engine> weak = engine;
    engine.reset();
    locator.clear();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(locator.size(), 0u);
}

TEST(FactoryTest, CreatesAnewEachTimeAndChecksTypes) {
    Zel::Factory factory;
    int made = 0;
    factory.add<Animal>([&made]() -> std::shared_ptr<Animal> {
        ++made;
        return std::make_shared<Dog>();
    });
    const auto first = factory.create<Animal>();
    const auto second = factory.create<Animal>();
    EXPECT_EQ(first->sound(), "woof");
    EXPECT_NE(first, second);
    EXPECT_EQ(made, 2);

    const std::string animal = typeid(Animal).name();
    EXPECT_EQ(messageOf<Zel::GenericException>([&] { factory.create<Engine>(animal); }),
              "Factory: invalid factory type for the reference " + animal);
    EXPECT_THROW(factory.create<Engine>(), Zel::NoFactoryException);
    EXPECT_EQ(messageOf<Zel::GenericException>([&] { factory.create<Engine>("missing"); }),
              "Factory: no factory for the reference missing");

    // Copies share what was registered, and live on their own.
    Zel::Factory copy = factory;
    factory.clear();
    EXPECT_FALSE(factory.has(animal));
    EXPECT_EQ(copy.create<Animal>()->sound(), "woof");
    Zel::Factory moved = std::move(copy);
    EXPECT_TRUE(moved.has(animal));
}

TEST(FactoryTest, ConcurrentCreateAndRegister) {
    Zel::Factory factory;
    factory.add<Engine>([] { return std::make_shared<Engine>(); });
    std::vector<std::thread> threads;
    std::atomic<int> power{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                if (t == 0)
                    factory.add<Engine>("e" + std::to_string(i % 10),
                                        [] { return std::make_shared<Engine>(); });
                power += factory.create<Engine>()->power;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(power.load(), 4 * 2000 * 7);
}
