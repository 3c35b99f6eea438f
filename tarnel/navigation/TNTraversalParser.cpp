#include "tarnel/navigation/TNTraversalParser.h"

#include "sgx/general/SgxException.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"

#include <map>
#include <set>
#include <vector>

namespace {

using Node = TNAssociationTraversal;

// A parsed chain: where it starts, the steps that end it (which a following `->` extends), and
// the step whose sibling a following branch becomes (null when the chain's level ends in a
// reference, which must not be extended: that would change the referenced step).
struct Chain {
    Node* head = nullptr;
    std::vector<Node*> tails;
    Node* siblingEnd = nullptr;
    bool isReference = false;
};

// The condition of `{ class current = "X" }`: the class name of the bound object equals X.
SgxCountedPtr<TNValueAbsExpr> classCondition(const SgxString& className) {
    auto* object = new TNObjectVarExpr;
    auto* test = new TNRelationalExpr(new TNClassNameExpr(object), TNRelationalExpr::TNEqual,
                                      new TNConstantExpr(className));
    return SgxCountedPtr<TNValueAbsExpr>(new TNValueAbsExpr(object, test));
}

bool isLabelChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

class Parser {
public:
    explicit Parser(std::string_view text) : m_text(text) {}
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;
    // Frees every node made unless the graph was handed out.
    ~Parser() {
        for (Node* node : m_nodes) {
            node->setChild(nullptr);
            node->setSibling(nullptr);
            SgxCyclicPtr<Node>(node).takeOwnership(); // claims the condition, deletes the node
        }
    }

    Node* parse() {
        const Chain chain = parseChain();
        skipBlanks();
        if (m_pos < m_text.size())
            fail("unexpected '" + SgxString(1, m_text[m_pos]) + "'");
        markResultSteps();
        m_nodes.clear();
        return chain.head;
    }

private:
    [[noreturn]] void fail(const SgxString& what) const {
        SgxException::raise("Traversal source error at position " + std::to_string(m_pos) + " (\"" +
                            SgxString(m_text) + "\"): " + what);
    }
    void skipBlanks() {
        while (m_pos < m_text.size() && (m_text[m_pos] == ' ' || m_text[m_pos] == '\t' ||
                                         m_text[m_pos] == '\n' || m_text[m_pos] == '\r'))
            ++m_pos;
    }
    bool accept(std::string_view token) {
        skipBlanks();
        if (m_text.substr(m_pos, token.size()) != token)
            return false;
        m_pos += token.size();
        return true;
    }
    void expect(std::string_view token) {
        if (!accept(token))
            fail("expected '" + SgxString(token) + "'");
    }
    SgxString label() {
        skipBlanks();
        const size_t start = m_pos;
        while (m_pos < m_text.size() && isLabelChar(m_text[m_pos]))
            ++m_pos;
        if (m_pos == start)
            fail("expected a label");
        return SgxString(m_text.substr(start, m_pos - start));
    }
    Node* newNode(const SgxString& role) {
        m_nodes.reserve(m_nodes.size() + 1);
        auto* node = new Node(role, false);
        m_nodes.push_back(node);
        return node;
    }

    // chain := element ( '->' chain )?
    Chain parseChain() {
        Chain chain = parseElement();
        if (!accept("->"))
            return chain;
        if (chain.isReference)
            fail("a reference ends its chain; nothing may follow it");
        const Chain next = parseChain();
        for (Node* tail : chain.tails) {
            tail->setChild(next.head);
            if (next.isReference)
                m_recursionSteps.push_back({tail, next.head});
        }
        chain.tails = next.tails;
        return chain;
    }

    // element := ( label ':' )? ( '[' name ']' condition? | '(' chain ( ';' chain )* ')' | '@'
    // label )
    Chain parseElement() {
        skipBlanks();
        SgxString name;
        const size_t start = m_pos;
        if (m_pos < m_text.size() && isLabelChar(m_text[m_pos])) {
            name = label();
            if (!accept(":")) {
                m_pos = start;
                fail("expected '[', '(' or '@'");
            }
            if (m_labels.contains(name)) {
                m_pos = start;
                fail("duplicate label '" + name + "'");
            }
        }
        Chain chain;
        if (accept("[")) {
            const size_t close = m_text.find(']', m_pos);
            if (close == std::string_view::npos)
                fail("expected ']'");
            std::string_view role = m_text.substr(m_pos, close - m_pos);
            while (!role.empty() && role.front() == ' ')
                role.remove_prefix(1);
            while (!role.empty() && role.back() == ' ')
                role.remove_suffix(1);
            m_pos = close + 1;
            Node* node = newNode(SgxString(role));
            if (accept("{"))
                node->setCondition(classCondition(parseClassCondition()));
            chain = {node, {node}, node, false};
        } else if (accept("(")) {
            chain = parseChain();
            // A group of one reference is that reference; a group of branches extends normally.
            while (accept(";")) {
                chain.isReference = false;
                if (chain.siblingEnd == nullptr)
                    fail("a reference ends its chain; no branch may follow it");
                const Chain branch = parseChain();
                chain.siblingEnd->setSibling(branch.head);
                chain.siblingEnd = branch.isReference ? nullptr : branch.siblingEnd;
                chain.tails.insert(chain.tails.end(), branch.tails.begin(), branch.tails.end());
            }
            expect(")");
        } else if (accept("@")) {
            if (!name.empty()) {
                m_pos = start;
                fail("a label names a step or a group, not a reference");
            }
            const size_t at = m_pos;
            const SgxString target = label();
            const auto found = m_labels.find(target);
            if (found == m_labels.end()) {
                m_pos = at;
                fail("unknown label '" + target + "'");
            }
            return {found->second, {}, nullptr, true};
        } else {
            fail("expected '[', '(' or '@'");
        }
        if (!name.empty())
            m_labels.emplace(name, chain.head);
        return chain;
    }

    // The rest of '{' 'class' 'current' '=' '"' X '"' '}'; returns X.
    SgxString parseClassCondition() {
        expect("class");
        expect("current");
        expect("=");
        expect("\"");
        const size_t close = m_text.find('"', m_pos);
        if (close == std::string_view::npos)
            fail("expected '\"'");
        SgxString className(m_text.substr(m_pos, close - m_pos));
        m_pos = close + 1;
        expect("}");
        return className;
    }

    // Applies the add-to-result rule of the notation (see the header).
    void markResultSteps() {
        std::set<const Node*> recursion;
        for (const auto& [step, target] : m_recursionSteps)
            recursion.insert(step);
        for (Node* node : m_nodes)
            if (node->child().isNull())
                node->setAddToResult(true);
        for (const auto& [step, target] : m_recursionSteps)
            step->setAddToResult(!hasEndStep(target, recursion));
    }

    // Whether an end step (no child) is reachable from `start` along children and siblings,
    // without following references back.
    bool hasEndStep(const Node* start, const std::set<const Node*>& recursion) const {
        std::set<const Node*> seen;
        std::vector<const Node*> pending{start};
        while (!pending.empty()) {
            const Node* node = pending.back();
            pending.pop_back();
            if (node == nullptr || !seen.insert(node).second)
                continue;
            if (node->child().isNull())
                return true;
            if (!recursion.contains(node))
                pending.push_back(node->child().get());
            pending.push_back(node->sibling().get());
        }
        return false;
    }

    std::string_view m_text;
    size_t m_pos = 0;
    std::vector<Node*> m_nodes;
    std::map<SgxString, Node*, std::less<>> m_labels;
    std::vector<std::pair<Node*, Node*>> m_recursionSteps;
};

} // namespace

TNAssociationTraversal* tnParseTraversal(std::string_view source) {
    Parser parser(source);
    return parser.parse();
}
