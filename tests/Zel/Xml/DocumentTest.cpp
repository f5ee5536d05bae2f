#include "../IO/TestStreams.h"

#include <Zel/GenericException.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Xml/Document.h>
#include <Zel/Xml/XmlException.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Xml {
namespace {

std::vector<std::string> names(const std::vector<Node>& nodes) {
    std::vector<std::string> result;
    for (const Node node : nodes)
        result.emplace_back(node.name());
    return result;
}

// The message of the XmlException that parsing `text` throws, or "" when it parses.
std::string parseError(std::string_view text, const ParseOptions& options = {}) {
    try {
        Document::parse(text, options);
    } catch (const XmlException& error) {
        return error.what();
    }
    return {};
}

TEST(XmlDocument, ReadsEveryKindOfNode) {
    const Document document =
        Document::parse("\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\r\n"
                        "<!-- before -->\n"
                        "<catalog xmlns=\"urn:books\" xmlns:x=\"urn:extra\" x:id='c&amp;1'>\n"
                        "  <book isbn=\"1\tline\r\n2\">Tom &amp; Jerry &lt;3 &#x20AC;&#65;\r\nnext</book>\n"
                        "  <x:note><![CDATA[<raw> & ]]]]><?pi data here?></x:note>\n"
                        "  <empty/>\n"
                        "</catalog>\n"
                        "<?after?>");
    const Node catalog = document.root();
    EXPECT_EQ(catalog.name(), "catalog");
    EXPECT_EQ(catalog.namespaceUri(), "urn:books");
    EXPECT_EQ(catalog.attribute("x:id").value(), "c&1");
    EXPECT_EQ(catalog.attribute("x:id").namespaceUri(), "urn:extra");
    EXPECT_EQ(catalog.attributeNs("urn:extra", "id").localName(), "id");
    EXPECT_EQ(catalog.attribute("xmlns:x").namespaceUri(), "http://www.w3.org/2000/xmlns/");

    const Node book = catalog.child("book");
    EXPECT_EQ(book.attribute("isbn").value(), "1 line 2"); // attribute white space normalised
    EXPECT_EQ(book.text(), "Tom & Jerry <3 \xE2\x82\xAC"
                           "A\nnext");
    EXPECT_EQ(book.namespaceUri(), "urn:books");

    const Node note = catalog.childNs("urn:extra", "note");
    EXPECT_EQ(note.prefix(), "x");
    EXPECT_EQ(note.firstChild().type(), NodeType::CData);
    EXPECT_EQ(note.firstChild().value(), "<raw> & ]]");
    EXPECT_EQ(note.lastChild().type(), NodeType::ProcessingInstruction);
    EXPECT_EQ(note.lastChild().name(), "pi");
    EXPECT_EQ(note.lastChild().value(), "data here");
    EXPECT_EQ(note.text(), "<raw> & ]]");
    EXPECT_EQ(note.lookupNamespaceUri("x"), "urn:extra");
    EXPECT_EQ(note.lookupNamespaceUri(""), "urn:books");

    EXPECT_TRUE(catalog.child("empty"));
    EXPECT_FALSE(catalog.child("missing").child("deeper"));
    EXPECT_EQ(catalog.child("missing").text(), "");

    std::vector<NodeType> top;
    for (const Node node : document.node().children())
        top.push_back(node.type());
    EXPECT_THAT(
        top, ::testing::ElementsAre(NodeType::Comment, NodeType::Element, NodeType::ProcessingInstruction));
    EXPECT_EQ(document.node().firstChild().value(), " before ");

    // Siblings backwards, from the last child of each node to the first one.
    for (const Node parent : {document.node(), catalog, note, book, catalog.child("empty")}) {
        SCOPED_TRACE(parent.name());
        std::vector<Node> forwards;
        for (const Node child : parent.children())
            forwards.push_back(child);
        std::vector<Node> backwards;
        for (Node child = parent.lastChild(); child; child = child.previousSibling())
            backwards.insert(backwards.begin(), child);
        EXPECT_EQ(backwards, forwards);
    }
    EXPECT_FALSE(document.node().previousSibling());
    EXPECT_FALSE(document.node().nextSibling());
    EXPECT_EQ(book.firstChild(), book.lastChild());
    EXPECT_EQ(catalog.lastChild().name(), "empty");
}

TEST(XmlDocument, OptionsDropCommentsAndPisOrKeepWhitespace) {
    const std::string text = "<a> <!--c--> <?p?> <b/> </a>";
    ParseOptions options;
    options.keepComments = false;
    options.keepProcessingInstructions = false;
    EXPECT_EQ(Document::parse(text, options).toString({false, ""}), "<a><b/></a>");
    options = {};
    options.keepWhitespaceText = true;
    // White space alone is written as a reference so that it stays text when read again.
    EXPECT_EQ(Document::parse(text, options).toString({false, ""}),
              "<a>&#32;<!--c-->&#32;<?p?>&#32;<b/>&#32;</a>");
}

TEST(XmlDocument, RefusesMalformedInputWithPositions) {
    struct Row {
        std::string text;
        std::string message;
    };
    const std::vector<Row> rows = {
        {"", "XML: no root element | line=1 | column=1"},
        {"<a>", "XML: unclosed element | line=1 | column=4 | name=a"},
        {"<a></b>", "XML: mismatched end tag | line=1 | column=6 | expected=a | found=b"},
        {"<a>\n  <b></a>", "XML: mismatched end tag | line=2 | column=8 | expected=b | found=a"},
        {"<a>\r\n\xC3\xA4\xC3\xA4</b>", "XML: mismatched end tag | line=2 | column=5 | expected=a | found=b"},
        {"<a>&foo;</a>", "XML: undefined entity | line=1 | column=4 | name=foo"},
        {"<a>&amp</a>", "XML: bad entity reference | line=1 | column=4"},
        {"<a>& b</a>", "XML: bad entity reference | line=1 | column=4"},
        {"<a>&#xD800;</a>", "XML: invalid character reference | line=1 | column=4 | code=55296"},
        {"<a>&#0;</a>", "XML: invalid character reference | line=1 | column=4 | code=0"},
        {"<a>&#99999999;</a>", "XML: invalid character reference | line=1 | column=4"},
        {"<a>&#x;</a>", "XML: bad character reference | line=1 | column=4"},
        {"<a>\x01</a>", "XML: invalid character | line=1 | column=4 | code=0x01"},
        {"<a>]]></a>", "XML: ']]>' in text | line=1 | column=4"},
        {"<a><!--\x02--></a>", "XML: invalid character | line=1 | column=8 | code=0x02"},
        {"<!DOCTYPE a [<!ENTITY e \"x\x01\">]><a/>",
         "XML: invalid character | line=1 | column=27 | code=0x01"},
        {"<a><!-- x", "XML: unterminated comment | line=1 | column=8"},
        {"<a><!-- x -- y --></a>", "XML: '--' inside a comment | line=1 | column=4"},
        {"<a><![CDATA[x</a>", "XML: unterminated CDATA section | line=1 | column=13"},
        {"<a><?pi x", "XML: unterminated processing instruction | line=1 | column=9"},
        {"<a b=\"1>", "XML: unterminated attribute value | line=1 | column=6"},
        {"<a b=\"<\"/>", "XML: '<' in attribute value | line=1 | column=7"},
        {"<a b=1/>",
         "XML: unexpected character | line=1 | column=6 | expected=quoted attribute value | found=1"},
        {"<a b=\"1\" b=\"2\"/>", "XML: repeated attribute | line=1 | column=10 | name=b"},
        {"<a xmlns:p=\"u\" xmlns:q=\"u\" p:b=\"1\" q:b=\"2\"/>",
         "XML: repeated attribute | line=1 | column=1 | name=q:b"},
        {"<a b=\"1\"c=\"2\"/>",
         "XML: unexpected character | line=1 | column=9 | expected=white space, > or /> | found=c"},
        {"<1a/>", "XML: unexpected character | line=1 | column=2 | expected=name | found=1"},
        {"<a:/>", "XML: bad qualified name | line=1 | column=1 | name=a:"},
        {"<p:a/>", "XML: undeclared namespace prefix | line=1 | column=1 | prefix=p"},
        {"<a xmlns:p=\"\"/>", "XML: empty namespace declaration | line=1 | column=1 | prefix=p"},
        {"<a/><b/>", "XML: content after the root element | line=1 | column=5"},
        {"<a/>text", "XML: content after the root element | line=1 | column=5"},
        {"text<a/>", "XML: text outside the root element | line=1 | column=1"},
        {"<a/><?xml version=\"1.0\"?>",
         "XML: reserved processing instruction target | line=1 | column=5 | target=xml"},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>",
         "XML: unsupported encoding | line=1 | column=21 | encoding=ISO-8859-1"},
        {"<?xml encoding=\"UTF-8\"?><a/>", "XML: bad XML declaration | line=1 | column=1 | missing=version"},
        {"\xFF\xFE<\0a\0/\0>\0", "XML: unsupported encoding | line=1 | column=1 | encoding=UTF-16"},
        {"<a><!DOCTYPE a></a>", "XML: unexpected markup | line=1 | column=4"},
        {"<!DOCTYPE a><!DOCTYPE a><a/>", "XML: second DOCTYPE | line=1 | column=13"},
        {"<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><a>&e;</a>",
         "XML: external entities are not allowed | line=1 | column=23 | name=e"},
        {"<!DOCTYPE a [<!ENTITY e PUBLIC \"-//x\" \"http://example.com/e\">]><a/>",
         "XML: external entities are not allowed | line=1 | column=23 | name=e"},
        {"<!DOCTYPE a [<!ENTITY % p \"x\">]><a/>",
         "XML: parameter entities are not supported | line=1 | column=23"},
        {"<!DOCTYPE a [<!ENTITY e \"&e;\">]><a>&e;</a>",
         "XML: recursive entity reference | line=1 | column=36 | name=e"},
        {"<!DOCTYPE a [<!ENTITY e \"<b/>\">]><a>&e;</a>",
         "XML: markup in entity text is not supported | line=1 | column=37"},
        {"<!DOCTYPE a [<!ENTITY e \"x\"",
         "XML: unexpected end of document | line=1 | column=28 | expected=>"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(parseError(row.text), row.message);
    }

    // Elements with many attributes are checked for repeats another way than those with a few:
    // names alike in length and letters, a repeat of the first, middle and last one, each after
    // 9 to 200 attributes (past the points where the check changes and its table grows).
    for (const int count : {9, 10, 33, 70, 200}) {
        std::string text = "<a";
        for (int i = 0; i < count; ++i)
            text += " n" + std::to_string(1000 + i) + "x=\"" + std::to_string(i) + "\"";
        EXPECT_EQ(parseError(text + "/>"), "");
        for (const int repeated : {0, count / 2, count - 1}) {
            SCOPED_TRACE(std::to_string(count) + " attributes, repeating " + std::to_string(repeated));
            const std::string name = "n" + std::to_string(1000 + repeated) + "x";
            EXPECT_EQ(parseError(text + " " + name + "=\"\"/>"),
                      "XML: repeated attribute | line=1 | column=" + std::to_string(text.size() + 2) +
                          " | name=" + name);
        }
    }
}

TEST(XmlDocument, ExpandsInternalEntitiesWithinTheLimit) {
    const std::string text = "<!DOCTYPE a [\n"
                             "  <!ELEMENT a (#PCDATA)> <!ATTLIST a v CDATA \"x>y\"> <!-- ignored -->\n"
                             "  <!ENTITY who \"World &amp; &#38;#65;\">\n"
                             "  <!ENTITY greeting \"Hello, &who;!\">\n"
                             "]>\n"
                             "<a v=\"&greeting;\">&greeting; &lt;&greeting;</a>";
    const Document document = Document::parse(text);
    EXPECT_EQ(document.root().text(), "Hello, World & A! <Hello, World & A!");
    EXPECT_EQ(document.root().attribute("v").value(), "Hello, World & A!");
    EXPECT_EQ(document.node().firstChild(), document.root()); // the DOCTYPE's comment is not kept
    EXPECT_FALSE(Document::parse("<!DOCTYPE a [<!ENTITY e \"\">]><a>&e;</a>").root().firstChild());

    ParseOptions options;
    options.maxEntityExpansion = 0;
    EXPECT_EQ(parseError(text, options),
              "XML: entity expansion limit exceeded | line=6 | column=7 | limit=0");
    options = {};
    options.allowDoctype = false;
    EXPECT_EQ(parseError(text, options), "XML: DOCTYPE not allowed | line=1 | column=1");
}

TEST(XmlDocument, BillionLaughsFailsFast) {
    std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n <!ENTITY lol \"lol\">\n";
    for (int level = 1; level <= 9; ++level) {
        text += " <!ENTITY lol" + std::to_string(level) + " \"";
        for (int i = 0; i < 10; ++i)
            text += level == 1 ? "&lol;" : "&lol" + std::to_string(level - 1) + ";";
        text += "\">\n";
    }
    text += "]>\n<lolz>&lol9;</lolz>";
    // Also the variant whose entities expand to nothing: only the references cost.
    std::string empty = text;
    empty.replace(empty.find("\"lol\""), 5, "\"\"");

    // A parser that expanded everything would need gigabytes and minutes here.
    for (const std::string& document : {text, empty})
        EXPECT_EQ(parseError(document),
                  "XML: entity expansion limit exceeded | line=14 | column=7 | limit=1048576");
}

TEST(XmlDocument, LimitsNestingDepth) {
    const auto nested = [](int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i)
            text += "<a>";
        for (int i = 0; i < depth; ++i)
            text += "</a>";
        return text;
    };
    EXPECT_NO_THROW(Document::parse(nested(256)));
    EXPECT_EQ(parseError(nested(257)), "XML: nesting too deep | line=1 | column=769 | limit=256");
    ParseOptions options;
    options.maxDepth = 100000;
    // Deep documents are parsed, queried and written without recursion in the parser.
    const Document deep = Document::parse(nested(100000), options);
    EXPECT_EQ(deep.root().descendants("a").size(), 99999u);
}

TEST(XmlDocument, SelectsByPath) {
    const Document document =
        Document::parse("<shop><book id=\"1\"><title>A</title></book>"
                        "<dvd><title>B</title><book id=\"2\"><title>C</title></book></dvd>"
                        "<book id=\"3\"/></shop>");
    const Node shop = document.root();
    struct Row {
        std::string path;
        std::vector<std::string> titles; // the text of each result's title (or its own text)
    };
    const std::vector<Row> rows = {
        {"book/title", {"A"}},   {"//title", {"A", "B", "C"}},    {"dvd//title", {"B", "C"}},
        {"*/title", {"A", "B"}}, {"/shop/dvd/book/title", {"C"}}, {"//book/..//title", {"A", "B", "C"}},
        {"missing/title", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        std::vector<std::string> texts;
        for (const Node node : shop.select(row.path))
            texts.push_back(node.text());
        EXPECT_EQ(texts, row.titles);
    }
    EXPECT_THAT(names(shop.descendants("book")), ::testing::ElementsAre("book", "book", "book"));
    EXPECT_EQ(shop.selectValue("//book/@id"), "1");
    EXPECT_EQ(shop.selectValue("dvd/book/@id"), "2");
    EXPECT_EQ(shop.selectValue("dvd/title"), "B");
    EXPECT_EQ(shop.selectValue("dvd/@missing"), "");
    EXPECT_EQ(shop.child("book").nextSibling("book").attribute("id").value(), "3");
}

TEST(XmlDocument, WritesWhatParsesToTheSameTree) {
    const std::vector<std::string> documents = {
        "<a/>",
        "<a b=\"&lt;&amp;&quot;'&#9;&#10;&#13;\">x &lt; y &gt; z &amp; &#13;</a>",
        "<!--top--><a><![CDATA[one ]]]]><![CDATA[> two]]><?p d?><!--c-->mixed<b/>text</a><?end?>",
        "<r xmlns=\"urn:a\" xmlns:p=\"urn:p\"><p:x p:y=\"1\"><z/></p:x></r>",
        "<a>\xE2\x82\xAC &#x1F600;</a>",
    };
    for (const std::string& text : documents) {
        SCOPED_TRACE(text);
        for (const std::string& indent : {std::string(), std::string("  ")}) {
            const std::string once = Document::parse(text).toString({true, indent});
            const std::string twice = Document::parse(once).toString({true, indent});
            EXPECT_EQ(once, twice);
        }
    }
    EXPECT_EQ(Document::parse(documents[1]).toString({false, ""}), documents[1]);
    EXPECT_EQ(Document::parse("<a><b>t</b><c/></a>").toString({true, "  "}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a>\n  <b>t</b>\n  <c/>\n</a>\n");
    EXPECT_EQ(Document().toString(), "");

    // Long runs are scanned for what needs escaping a word at a time: each such character at
    // every offset within and across words, in text and in attribute values.
    for (std::size_t at = 0; at < 20; ++at) {
        // Read plainly, with the same word-wise scan: tab and line ends in an attribute value are
        // spaces, CR LF in text is one LF.
        const std::string before(at, 'x');
        const std::string after(19 - at, 'y');
        const std::string plain = before + "\t\r\n" + after + "&amp;";
        const Document read = Document::parse("<a v=\"" + plain + "\">" + plain + "</a>");
        EXPECT_EQ(read.root().attribute("v").value(), before + "  " + after + "&");
        EXPECT_EQ(read.root().text(), before + "\t\n" + after + "&");
        for (const char special : std::string("<&>\"\t\n\r")) {
            const std::string value = std::string(at, 'x') + special + std::string(19 - at, 'y');
            SCOPED_TRACE(value);
            // Read from character references, so that the values hold the characters themselves.
            const std::string escaped =
                std::string(at, 'x') + "&#" + std::to_string(int(special)) + ";" + std::string(19 - at, 'y');
            const std::string text = "<a v=\"" + escaped + "\">" + escaped + "</a>";
            const Document document = Document::parse(Document::parse(text).toString());
            EXPECT_EQ(document.root().attribute("v").value(), value);
            EXPECT_EQ(document.root().text(), value);
        }
    }
}

// A few MB of order records, as an old system would export them.
std::string generateOrders(int count) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<orders xmlns=\"urn:shop\" "
                       "xmlns:c=\"urn:customer\">\n";
    for (int i = 0; i < count; ++i) {
        const std::string n = std::to_string(i);
        text += "  <order id=\"" + n + "\" state=\"" + (i % 3 ? "open" : "closed") + "\">\n";
        text +=
            "    <c:customer c:ref=\"k" + n + "\">M&#252;ller &amp; S\xC3\xB6hne " + n + "</c:customer>\n";
        text += "    <!-- order " + n + " -->\n";
        text += "    <item sku=\"A-" + n + "\" qty=\"" + std::to_string(i % 7 + 1) + "\">Widget &lt;" + n +
                "&gt;</item>\n";
        text += "    <note><![CDATA[if (a < b && c) { return; }]]></note>\n";
        text += "  </order>\n";
    }
    return text + "</orders>\n";
}

TEST(XmlDocument, ReadsALargeDocumentFromAStream) {
    const int count = 20000;
    const std::string text = generateOrders(count);
    ASSERT_GT(text.size(), 4u * 1024 * 1024);
    const auto stream = IO::Testing::PieceStream::trickle(text, 4096);
    const Document document = Document::parse(*stream);

    const std::vector<Node> orders = document.root().select("order");
    ASSERT_EQ(orders.size(), static_cast<std::size_t>(count));
    std::int64_t quantity = 0;
    for (int i = 0; i < count; ++i) {
        const Node order = orders[static_cast<std::size_t>(i)];
        ASSERT_EQ(order.attribute("id").value(), std::to_string(i));
        ASSERT_EQ(order.childNs("urn:customer", "customer").text(),
                  "M\xC3\xBCller & S\xC3\xB6hne " + std::to_string(i));
        ASSERT_EQ(order.child("item").text(), "Widget <" + std::to_string(i) + ">");
        ASSERT_EQ(order.child("item").namespaceUri(), "urn:shop");
        ASSERT_EQ(order.child("note").text(), "if (a < b && c) { return; }");
        quantity += std::stoll(std::string(order.child("item").attribute("qty").value()));
    }
    std::int64_t expected = 0;
    for (int i = 0; i < count; ++i)
        expected += i % 7 + 1;
    EXPECT_EQ(quantity, expected);

    const std::string written = document.toString({true, "  "});
    EXPECT_EQ(Document::parse(written).toString({true, "  "}), written);
    IO::StringStream out;
    document.write(out, {true, "  "});
    EXPECT_EQ(out.str(), written);
}

} // namespace
} // namespace Zel::Xml
