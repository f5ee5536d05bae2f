#pragma once

namespace Zel::Orm {

// What every Field<T> shares: the flag saying whether the value was assigned since the object was
// loaded or last saved. Saving writes only the columns whose flag is set.
class FieldBase {
public:
    bool changed() const noexcept { return m_changed; }
    // Forgets the change: the value now matches the row (after a load or a save).
    void clearChanged() noexcept { m_changed = false; }

protected:
    FieldBase() = default;
    FieldBase(const FieldBase&) = default;
    FieldBase& operator=(const FieldBase&) = default;
    ~FieldBase() = default;

    void markChanged() noexcept { m_changed = true; }

private:
    bool m_changed = false;
};

} // namespace Zel::Orm
