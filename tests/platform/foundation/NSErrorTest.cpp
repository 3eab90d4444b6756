#include "vidloom/platform/foundation/NSError.h"

#include <filesystem>

namespace vidloom {
namespace {

TEST(NSError, DescribesItself) {
  struct Row {
    NSError error;
    std::string description, localized;
  };
  const NSError underlying("Inner", 7);
  for (const Row& row : {
           Row{NSError("LUMRender", -1, {{NSLocalizedDescriptionKey, std::string("boom")}}),
               R"~(Error Domain=LUMRender Code=-1 "boom" UserInfo={NSLocalizedDescription=boom})~", "boom"},
           Row{NSError("D", 5), R"~(Error Domain=D Code=5 "(null)")~", "The operation couldn\u2019t be completed. (D error 5.)"},
           Row{NSError(), R"~(Error Domain= Code=0 "(null)")~", "The operation couldn\u2019t be completed. ( error 0.)"},
           Row{NSError("D", 1, {{NSLocalizedFailureReasonErrorKey, std::string("why")}, {"Count", 3}, {"Rate", 0.5}}),
               R"~(Error Domain=D Code=1 "why" UserInfo={Count=3, NSLocalizedFailureReason=why, Rate=0.5})~",
               "The operation couldn\u2019t be completed. (D error 1.)"},
           Row{NSError("D", 1,
                       {{NSLocalizedDescriptionKey, "text"},
                        {NSFilePathErrorKey, std::filesystem::path("a.mp4")},
                        {NSUnderlyingErrorKey, underlying}}),
               R"~(Error Domain=D Code=1 "text" UserInfo={NSFilePath=a.mp4, NSLocalizedDescription=text, )~"
               R"~(NSUnderlyingError={Error Domain=Inner Code=7 "(null)"}})~",
               "text"},
       }) {
    EXPECT_EQ(row.error.description(), row.description);
    EXPECT_EQ(row.error.localizedDescription(), row.localized);
  }
}

TEST(NSError, HandsOutItsUnderlyingErrorAndReason) {
  const NSError error("Outer", 1,
                      {{NSUnderlyingErrorKey, NSError("Inner", 7)}, {NSLocalizedFailureReasonErrorKey, std::string("why")}});
  ASSERT_TRUE(error.underlyingError());
  EXPECT_EQ(error.underlyingError()->domain(), "Inner");
  EXPECT_EQ(error.underlyingError()->code(), 7);
  EXPECT_EQ(error.localizedFailureReason(), "why");
  EXPECT_FALSE(NSError("D", 1).underlyingError());
  EXPECT_FALSE(NSError("D", 1).localizedFailureReason());
}

TEST(NSDictionary, ReadsAnyNumberTypeAsADouble) {
  const NSDictionary dictionary{
      {"int", 1},      {"unsigned", 2u}, {"int64", int64_t{3}},      {"uint64", uint64_t{4}},         {"double", 5.5},
      {"float", 6.5f}, {"bool", true},   {"text", std::string("7")}, {"format", uint32_t{0x42475241}}};
  const auto read = [&](const std::string& key) {
    double value = -1;
    const bool found = numberValue(dictionary, key, value);
    EXPECT_EQ(found, value != -1) << key;
    return value;
  };
  EXPECT_EQ(read("int"), 1);
  EXPECT_EQ(read("unsigned"), 2);
  EXPECT_EQ(read("int64"), 3);
  EXPECT_EQ(read("uint64"), 4);
  EXPECT_EQ(read("double"), 5.5);
  EXPECT_EQ(read("float"), 6.5);
  EXPECT_EQ(read("bool"), 1);
  EXPECT_EQ(read("format"), 1111970369);
  EXPECT_EQ(read("text"), -1);
  EXPECT_EQ(read("missing"), -1);
}

}  // namespace
}  // namespace vidloom
