#include <Zel/VariantIterator.h>

#include <Zel/Detail/VariantAccess.h>
#include <Zel/GenericException.h>
#include <Zel/Variant.h>

namespace Zel {

using Detail::VariantAccess;

const std::string VariantIterator::m_emptyKey;

VariantIterator::VariantIterator(const Variant& variant, bool atEnd) : m_variant(&variant) {
    if (variant.isMap()) {
        if (atEnd) m_chunk = static_cast<std::uint32_t>(VariantAccess::map(variant).chunks().size());
    } else if (variant.isVector()) {
        if (atEnd) m_index = VariantAccess::vector(variant).size();
    } else {
        throw GenericException("Variant: You cannot iterate the type '" + Variant::typeToString(variant.type()) + "'");
    }
}

VariantIterator& VariantIterator::operator++() {
    if (m_variant->isMap()) {
        if (++m_index == VariantAccess::map(*m_variant).chunks()[m_chunk].size()) {
            ++m_chunk;
            m_index = 0;
        }
    } else {
        ++m_index;
    }
    return *this;
}

const std::string& VariantIterator::key() const {
    if (!m_variant->isMap()) return m_emptyKey;
    return VariantAccess::map(*m_variant).chunks()[m_chunk][m_index].first;
}

const Variant& VariantIterator::value() const {
    if (m_variant->isMap()) return VariantAccess::map(*m_variant).chunks()[m_chunk][m_index].second;
    return VariantAccess::vector(*m_variant)[m_index];
}

} // namespace Zel
