#pragma once

#include <Zel/Export.h>
#include <Zel/Xml/Attribute.h>
#include <Zel/Xml/Detail/NodeData.h>
#include <Zel/Xml/NodeType.h>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Xml {

// A handle to a node of a Document: a pointer in disguise, cheap to copy and compare, valid only
// while its Document lives. A lookup that finds nothing returns a null Node, and every accessor of
// a null Node returns an empty value, so chains like doc.root().child("a").child("b").text() need
// no checks in between.
//
// Thread safety: a Document is never changed after parsing, so any number of threads may read it.
class ZEL_API Node {
public:
    // Walks the siblings from one node on: `for (Node child : node.children())`.
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Node;
        using difference_type = std::ptrdiff_t;
        using pointer = const Node*;
        using reference = Node;

        Iterator() noexcept = default;
        explicit Iterator(const Detail::NodeData* data) noexcept : m_data(data) {}
        Node operator*() const noexcept { return Node(m_data); }
        Iterator& operator++() noexcept {
            m_data = m_data->nextSibling;
            return *this;
        }
        Iterator operator++(int) noexcept {
            Iterator before = *this;
            m_data = m_data->nextSibling;
            return before;
        }
        bool operator==(const Iterator&) const noexcept = default;

    private:
        const Detail::NodeData* m_data = nullptr;
    };
    struct Range {
        Iterator first;
        Iterator last;
        Iterator begin() const noexcept { return first; }
        Iterator end() const noexcept { return last; }
    };

    Node() noexcept = default;
    explicit Node(const Detail::NodeData* data) noexcept : m_data(data) {}

    explicit operator bool() const noexcept { return m_data != nullptr; }
    bool isNull() const noexcept { return m_data == nullptr; }
    NodeType type() const noexcept { return m_data ? m_data->type : NodeType::Null; }
    bool isElement() const noexcept { return type() == NodeType::Element; }

    // The qualified name of an element as written ("soap:Body"), the target of a processing
    // instruction, empty for the other kinds.
    std::string_view name() const noexcept { return m_data ? m_data->name() : std::string_view(); }
    std::string_view prefix() const noexcept {
        return m_data ? std::string_view(m_data->nameData, m_data->prefixLength) : std::string_view();
    }
    std::string_view localName() const noexcept {
        if (!m_data) return {};
        return m_data->prefixLength ? m_data->name().substr(m_data->prefixLength + 1) : m_data->name();
    }
    // The namespace the element's prefix (or the default namespace) is bound to; empty for none.
    std::string_view namespaceUri() const noexcept {
        return m_data ? m_data->namespaceView() : std::string_view();
    }
    // The content of a text, CDATA section, comment or the data of a processing instruction.
    std::string_view value() const noexcept { return m_data ? m_data->value() : std::string_view(); }

    Node parent() const noexcept { return Node(m_data ? m_data->parent : nullptr); }
    Node firstChild() const noexcept { return Node(m_data ? m_data->firstChild : nullptr); }
    Node lastChild() const noexcept { return Node(m_data ? m_data->lastChild() : nullptr); }
    Node nextSibling() const noexcept { return Node(m_data ? m_data->nextSibling : nullptr); }
    Node previousSibling() const noexcept { return Node(m_data ? m_data->previous() : nullptr); }
    Range children() const noexcept { return {Iterator(m_data ? m_data->firstChild : nullptr), Iterator()}; }

    // The first child element with this qualified name ("*": any element).
    Node child(std::string_view name) const noexcept;
    // The next sibling element with this qualified name ("*": any element).
    Node nextSibling(std::string_view name) const noexcept;
    // The first child element with this namespace and local name.
    Node childNs(std::string_view namespaceUri, std::string_view localName) const noexcept;

    Attribute firstAttribute() const noexcept { return Attribute(m_data ? m_data->firstAttribute : nullptr); }
    // By qualified name as written.
    Attribute attribute(std::string_view name) const noexcept;
    Attribute attributeNs(std::string_view namespaceUri, std::string_view localName) const noexcept;

    // The text and CDATA children of an element joined; the value of any other node.
    std::string text() const;
    // Every element below this node with this qualified name ("*": any), in document order.
    std::vector<Node> descendants(std::string_view name) const;

    // Elements by a path of qualified names separated by '/': "config/db/host". A step "*" takes
    // any element, "." the node itself, ".." its parent; "//" before a step searches all
    // descendants instead of the children ("//item", "catalog//price"); a leading '/' starts at
    // the document node ("/catalog/book" where catalog is the root). Results are in document
    // order without duplicates.
    std::vector<Node> select(std::string_view path) const;
    Node selectFirst(std::string_view path) const;
    // The text of the first element the path selects, or with a last step "@name" the value of
    // that attribute of the first selected element that has it; empty when nothing matches.
    std::string selectValue(std::string_view path) const;

    // The URI a prefix is bound to where this node stands; "" finds the default namespace.
    // Empty when the prefix is not declared.
    std::string_view lookupNamespaceUri(std::string_view prefix) const noexcept;

    bool operator==(const Node&) const noexcept = default;

private:
    const Detail::NodeData* m_data = nullptr;
};

} // namespace Zel::Xml
