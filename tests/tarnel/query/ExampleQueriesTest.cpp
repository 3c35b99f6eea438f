// The query files of examples/queries/ give, on a 10,000-object W1 model, what W1's hand-built
// report graphs give; printed and compiled again they give it once more, and print the same.
#include "tarnel/query/TNQuery.h"
#include "w1/w1_reports.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

std::string readExample(const char* name) {
    const auto path =
        std::filesystem::path(__FILE__).parent_path() / "../../../examples/queries" / name;
    std::ifstream in(path);
    EXPECT_TRUE(in) << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(ExampleQueries, GiveWhatTheHandBuiltGraphsGiveAndRoundTrip) {
    TNSchema schema;
    w1::TarnelModel model(schema);
    w1::generate(model, 10000);
    w1::defineAllClasses(schema);
    schema.donePopulating();
    TNObject* root = schema.rootObject().get();
    const w1::Reports reports;
    const w1::ShapeReports shapes;

    // Each file with the hand-built graph's answer, as the text of a value.
    const std::pair<const char*, std::function<SgxString()>> examples[] = {
        {"q1_public_operations.tnq", [&] { return reports.q1(root); }},
        {"q2_public_operations_per_class.tnq", [&] { return std::to_string(reports.q2(root)); }},
        {"q3_classes_below_top_packages.tnq", [&] { return std::to_string(reports.q3(root)); }},
        {"r1_pattern_and_real.tnq", [&] { return std::to_string(shapes.r1(root)); }},
        {"r2_two_levels_of_links.tnq", [&] { return std::to_string(shapes.r2(root)); }},
        {"r3_two_key_sort.tnq", [&] { return shapes.r3(root); }},
        {"r4_reverse_navigation.tnq", [&] { return std::to_string(shapes.r4(root)); }},
        {"r5_nested_quantifiers.tnq", [&] { return std::to_string(shapes.r5(root)); }},
        {"r6_text_along_a_link.tnq", [&] { return shapes.r6(root); }},
    };
    for (const auto& [file, handBuilt] : examples) {
        SCOPED_TRACE(file);
        const TNQuery query = TNQuery::compile(schema, readExample(file));
        const SgxString expected = handBuilt();
        EXPECT_EQ(query.evaluateOnModel(schema).value.asString(), expected);
        const SgxString printed = query.print();
        const TNQuery again = TNQuery::compile(schema, printed);
        EXPECT_EQ(again.print(), printed);
        EXPECT_EQ(again.evaluateOnModel(schema).value.asString(), expected);
    }
    // The figures the demo prints.
    EXPECT_EQ(reports.q1(root).size(), 23720u);
    EXPECT_EQ(reports.q2(root), 1500);
    EXPECT_EQ(reports.q3(root), 990);
}

} // namespace
