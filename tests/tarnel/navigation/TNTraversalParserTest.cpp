#include "tarnel/navigation/TNTraversalParser.h"

#include "tarnel/navigation/NavigationTestModel.h"

#include <map>

namespace {

// The graph in a compact form: [role], '+' when it adds, '?' with a condition, its child in
// parentheses after '->', its sibling after ';'; a node met before prints as @<visit index>.
std::string describe(const TNAssociationTraversal* node,
                     std::map<const TNAssociationTraversal*, int>& seen) {
    if (const auto found = seen.find(node); found != seen.end())
        return "@" + std::to_string(found->second);
    const int index = static_cast<int>(seen.size());
    seen[node] = index;
    std::string text = "[" + node->associationToTraverse() + "]";
    text += node->addToResult() ? "+" : "";
    text += node->condition().isNull() ? "" : "?";
    if (!node->child().isNull())
        text += " -> (" + describe(node->child().get(), seen) + ")";
    if (!node->sibling().isNull())
        text += "; " + describe(node->sibling().get(), seen);
    return text;
}

std::string parsed(const std::string& source) {
    TNAssociationTraversal* root = tnParseTraversal(source);
    std::map<const TNAssociationTraversal*, int> seen;
    const std::string text = describe(root, seen);
    release(root);
    return text;
}

} // namespace

TEST(TNTraversalParser, BuildsGraphsAndMarksResultSteps) {
    const std::pair<const char*, const char*> cases[] = {
        {"[a]", "[a]+"},
        {" [ All Classes ] ", "[All Classes]+"},
        {"[g] -> [s] { class current = \"Class\" }", "[g] -> ([s]+?)"},
        {"[] -> ( [m]; [l] )", "[] -> ([m]+; [l]+)"},
        // Recursion that is itself the result, and recursion beside a collecting branch.
        {"top: [] -> [s] -> @top", "[] -> ([s]+ -> (@0))"},
        {"top: [] -> ( [s] -> @top; [c] )", "[] -> ([s] -> (@0); [c]+)"},
        // A step after a group follows every branch.
        {"( [a]; [b] -> [c] ) -> [d]", "[a] -> ([d]+); [b] -> ([c] -> (@1))"},
        {"(([a]; [b]); [c])", "[a]+; [b]+; [c]+"},
    };
    for (const auto& [source, expected] : cases)
        EXPECT_EQ(parsed(source), expected) << source;
}

TEST(TNTraversalParser, ClassConditionMatchesTheExactClass) {
    NodeModel m;
    TNObject* a = m.make("a");
    m.link(a, {m.make("n1"), m.make("l1", 0, true), m.make("n2")});
    for (const auto& [className, expected] : {std::pair{"Leaf", "l1"}, {"Node", "n1 n2"}}) {
        TNAssociationTraversal* root =
            tnParseTraversal("[next] { class current = \"" + std::string(className) + "\" }");
        TNObjectSequence result;
        root->traverse(result, a);
        EXPECT_EQ(names(result), expected) << className;
        release(root);
    }
}

TEST(TNTraversalParser, MalformedTextNamesThePosition) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "position 0 (\"\"): expected '[', '(' or '@'"},
        {"[a", "position 1 (\"[a\"): expected ']'"},
        {"[a] -> @nope", "position 8 (\"[a] -> @nope\"): unknown label 'nope'"},
        {"t: [a] -> t: [b]", "position 10 (\"t: [a] -> t: [b]\"): duplicate label 't'"},
        {"t: [a] -> @t -> [b]", "a reference ends its chain; nothing may follow it"},
        {"t: [a] -> ( @t; [b] )", "a reference ends its chain; no branch may follow it"},
        {"[a] { class current = \"X\" ", "expected '}'"},
        {"[a] { class = \"X\" }", "expected 'current'"},
        {"( [a]; [b]", "expected ')'"},
        {"[a] )", "position 4 (\"[a] )\"): unexpected ')'"},
        {"t [a]", "position 0 (\"t [a]\"): expected '[', '(' or '@'"},
    };
    for (const auto& [source, expected] : cases) {
        try {
            release(tnParseTraversal(source));
            ADD_FAILURE() << "accepted: " << source;
        } catch (const SgxException& e) {
            EXPECT_NE(std::string(e.reasonText()).find(expected), std::string::npos)
                << source << " -> " << e.reasonText();
            EXPECT_EQ(std::string(e.reasonText()).rfind("Traversal source error at position ", 0),
                      0u);
        }
    }
}
