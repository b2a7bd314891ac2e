#include "TestImages.h"

#include "parameters/OffsetDynamicParametersSet.h"
#include "parameters/OffsetTimeGridParametersSet.h"
#include "parameters/ParametersSet.h"

#include <gtest/gtest.h>

namespace {

struct Record {
    int value = 0;
    int other = 0;
};

// A set that writes its rows as differences, in the order given.
class RecordSet : public ParametersSet<Record> {
public:
    RecordSet(std::initializer_list<std::pair<std::string, int>> writes) {
        for (const auto& write : writes) row(write.first).value = write.second;
    }
    Record& Row(const std::string& key) { return row(key); }
};

}  // namespace

TEST(ParametersSet, NearestKeyTrialsForThreeComponents) {
    RecordSet set{{"", 1}, {"Hazel", 2}, {"Hazel.A12", 3}, {"Hazel.*.m3", 4}};
    EXPECT_EQ(4, set.lookup("Hazel.A12.m3").value);
    EXPECT_EQ(3, set.lookup("Hazel.A12.m99").value);
    EXPECT_EQ(2, set.lookup("Hazel.B7.m99").value);
    EXPECT_EQ(2, set.lookup("Hazel").value);
    EXPECT_EQ(1, set.lookup("Aspen.A12.m3").value);
    EXPECT_EQ(1, set.lookup("Unknown").value);
    EXPECT_EQ(1, set.lookup("").value);
}

TEST(ParametersSet, NearestKeyTrialsForFourComponentsInOrder) {
    // Each trial key of a.b.c.d is stored in turn; removing the winner must reveal the next.
    const std::vector<std::string> order = {"a.b.*.d", "a.*.d", "a.b.c", "a.*.c", "a.b", "a", ""};
    for (size_t first = 0; first < order.size(); ++first) {
        RecordSet set{};
        for (size_t k = first; k < order.size(); ++k) set.Row(order[k]).value = static_cast<int>(k) + 1;
        EXPECT_EQ(static_cast<int>(first) + 1, set.lookup("a.b.c.d").value) << "from " << order[first];
    }
}

TEST(ParametersSet, WildcardTrialFailsThenShorteningFindsTheModel) {
    RecordSet set{{"", 1}, {"Birch", 5}, {"Cedar", 6}};
    EXPECT_EQ(5, set.lookup("Birch.x.m1").value);
    EXPECT_EQ(6, set.lookup("Cedar.*.m1").value);
    // A row of its own is one the search reaches before the default row.
    EXPECT_TRUE(set.HasOwnRow("Birch.x.m1"));
    EXPECT_TRUE(set.HasOwnRow("Cedar.*.m1"));
    EXPECT_FALSE(set.HasOwnRow("Aspen.x.m1"));
    EXPECT_FALSE(set.HasOwnRow(""));
}

TEST(ParametersSet, RowsAreCopiesOfTheirAncestorsAtTheTimeOfWriting) {
    RecordSet set{{"", 1}};
    set.Row("").other = 10;
    set.Row("Hazel.*.m1").value = 2;  // copies "" (other 10)
    set.Row("Hazel").other = 20;      // copies "" too; does not reach Hazel.*.m1
    set.Row("Hazel.*.m2").value = 3;  // copies Hazel (other 20)
    EXPECT_EQ(10, set.lookup("Hazel.*.m1").other);
    EXPECT_EQ(1, set.lookup("Hazel").value);
    EXPECT_EQ(20, set.lookup("Hazel.X.m2").other);
    EXPECT_EQ(4u, set.GetBaseRows().size());
}

TEST(ParametersSet, SetWithoutDefaultRowGainsADefaultConstructedOne) {
    RecordSet set{{"Birch", 5}};
    EXPECT_FALSE(set.HasOwnRow("Cedar.x.m1"));
    EXPECT_EQ(1u, set.GetBaseRows().size());  // asking inserts nothing
    EXPECT_EQ(0, set.lookup("Cedar.x.m1").value);
    EXPECT_EQ(2u, set.GetBaseRows().size());
    EXPECT_EQ(1u, set.GetBaseRows().count(""));
}

TEST(OffsetParameterSets, RowsOfTheTables) {
    EXPECT_FLOAT_EQ(0.125f, s_OffsetDynamicParametersSet.lookup("Birch").Weight);
    EXPECT_FLOAT_EQ(0.125f, s_OffsetDynamicParametersSet.lookup("Hazel.A12.m3").Weight);

    for (const char* key : {"Birch", "Cedar", "Birch.x.m1"}) {
        const OffsetParameters& grid = s_OffsetTimeGridParametersSet.lookup(key);
        EXPECT_EQ(std::vector<float>({0.5f, 1.0f, 1.5f, 2.0f, 2.5f}), grid.TemperatureSteps) << key;
        EXPECT_EQ(std::vector<int>({20, 40, 60, 80, 100}), grid.TimeSteps) << key;
        EXPECT_EQ(std::vector<float>({0.1f, 0.2f, 0.3f, 0.4f, 0.5f}), grid.Coefficients) << key;
    }
    const OffsetParameters& other = s_OffsetTimeGridParametersSet.lookup("Maple");
    EXPECT_TRUE(other.TemperatureSteps.empty() && other.TimeSteps.empty() && other.Coefficients.empty());
}
