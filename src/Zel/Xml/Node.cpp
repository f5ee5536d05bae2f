#include <Zel/Xml/Node.h>
#include <unordered_set>

namespace Zel::Xml {
namespace {

using Detail::NodeData;

bool matches(const NodeData* node, std::string_view name) noexcept {
    return node->type == NodeType::Element && (name == "*" || node->name() == name);
}

// Preorder, without recursion: documents may be deep.
template <class Visit>
void forEachDescendant(const NodeData* top, Visit&& visit) {
    const NodeData* node = top->firstChild;
    while (node) {
        visit(node);
        if (node->firstChild) {
            node = node->firstChild;
            continue;
        }
        while (node != top && !node->nextSibling)
            node = node->parent;
        node = node == top ? nullptr : node->nextSibling;
    }
}

} // namespace

Node Node::child(std::string_view name) const noexcept {
    if (!m_data) return {};
    for (const NodeData* node = m_data->firstChild; node; node = node->nextSibling) {
        if (matches(node, name)) return Node(node);
    }
    return {};
}

Node Node::nextSibling(std::string_view name) const noexcept {
    if (!m_data) return {};
    for (const NodeData* node = m_data->nextSibling; node; node = node->nextSibling) {
        if (matches(node, name)) return Node(node);
    }
    return {};
}

Node Node::childNs(std::string_view namespaceUri, std::string_view localName) const noexcept {
    for (Node node = firstChild(); node; node = node.nextSibling()) {
        if (node.isElement() && node.namespaceUri() == namespaceUri && node.localName() == localName)
            return node;
    }
    return {};
}

Attribute Node::attribute(std::string_view name) const noexcept {
    for (Attribute attribute = firstAttribute(); attribute; attribute = attribute.next()) {
        if (attribute.name() == name) return attribute;
    }
    return {};
}

Attribute Node::attributeNs(std::string_view namespaceUri, std::string_view localName) const noexcept {
    for (Attribute attribute = firstAttribute(); attribute; attribute = attribute.next()) {
        if (attribute.namespaceUri() == namespaceUri && attribute.localName() == localName) return attribute;
    }
    return {};
}

std::string Node::text() const {
    if (!m_data) return {};
    if (m_data->type != NodeType::Element && m_data->type != NodeType::Document)
        return std::string(m_data->value());
    std::string result;
    for (const NodeData* node = m_data->firstChild; node; node = node->nextSibling) {
        if (node->type == NodeType::Text || node->type == NodeType::CData) result += node->value();
    }
    return result;
}

std::vector<Node> Node::descendants(std::string_view name) const {
    std::vector<Node> result;
    if (m_data) {
        forEachDescendant(m_data, [&](const NodeData* node) {
            if (matches(node, name)) result.emplace_back(node);
        });
    }
    return result;
}

std::vector<Node> Node::select(std::string_view path) const {
    if (!m_data) return {};
    std::vector<const NodeData*> current{m_data};
    if (path.starts_with('/') && !path.starts_with("//")) {
        while (current[0]->parent)
            current[0] = current[0]->parent;
        path.remove_prefix(1);
    }
    bool deep = false;
    while (!path.empty() && !current.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view step = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (step.empty()) {
            deep = true;
            continue;
        }
        std::vector<const NodeData*> next;
        std::unordered_set<const NodeData*> seen;
        const auto take = [&](const NodeData* node) {
            if (seen.insert(node).second) next.push_back(node);
        };
        for (const NodeData* node : current) {
            if (step == ".") {
                take(node);
            } else if (step == "..") {
                if (node->parent) take(node->parent);
            } else if (deep) {
                forEachDescendant(node, [&](const NodeData* candidate) {
                    if (matches(candidate, step)) take(candidate);
                });
            } else {
                for (const NodeData* child = node->firstChild; child; child = child->nextSibling) {
                    if (matches(child, step)) take(child);
                }
            }
        }
        current = std::move(next);
        deep = false;
    }
    std::vector<Node> result;
    result.reserve(current.size());
    for (const NodeData* node : current)
        result.emplace_back(node);
    return result;
}

Node Node::selectFirst(std::string_view path) const {
    const std::vector<Node> nodes = select(path);
    return nodes.empty() ? Node() : nodes.front();
}

std::string Node::selectValue(std::string_view path) const {
    const std::size_t at = path.rfind('@');
    if (at != std::string_view::npos && (at == 0 || path[at - 1] == '/')) {
        const std::string_view name = path.substr(at + 1);
        const std::vector<Node> nodes = at == 0 ? std::vector<Node>{*this} : select(path.substr(0, at - 1));
        for (const Node node : nodes) {
            if (const Attribute attribute = node.attribute(name)) return std::string(attribute.value());
        }
        return {};
    }
    return selectFirst(path).text();
}

std::string_view Node::lookupNamespaceUri(std::string_view prefix) const noexcept {
    if (prefix == "xml") return "http://www.w3.org/XML/1998/namespace";
    for (const NodeData* node = m_data; node; node = node->parent) {
        for (const Detail::AttributeData* attribute = node->firstAttribute; attribute;
             attribute = attribute->next) {
            const std::string_view name = attribute->name();
            if (prefix.empty() ? name == "xmlns"
                               : name.size() == prefix.size() + 6 && name.starts_with("xmlns:") &&
                                     name.ends_with(prefix))
                return attribute->value();
        }
    }
    return {};
}

} // namespace Zel::Xml
