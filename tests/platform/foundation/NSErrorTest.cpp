#include "vidloom/platform/foundation/NSError.h"

#include <filesystem>

namespace vidloom {
namespace {

TEST(NSError, DescribesItself) {
  using Row = std::tuple<NSError, std::string, std::string>;
  const NSError underlying("Inner", 7);
  for (const auto& [error, description, localized] : {
           Row{NSError("LUMRender", -1, {{NSLocalizedDescriptionKey, std::string("boom")}}),
               R"~(Error Domain=LUMRender Code=-1 "boom" UserInfo={NSLocalizedDescription=boom})~", "boom"},
           Row{NSError("D", 5), R"~(Error Domain=D Code=5 "(null)")~", "The operation couldn\u2019t be completed. (D error 5.)"},
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
    EXPECT_EQ(error.description(), description);
    EXPECT_EQ(error.localizedDescription(), localized);
  }
}

TEST(NSDictionary, ReadsAnyNumberTypeAsADouble) {
  const std::pair<std::any, double> rows[] = {{1, 1},     {2u, 2},     {int64_t{3}, 3}, {uint64_t{4}, 4},
                                              {5.5, 5.5}, {6.5f, 6.5}, {true, 1},       {uint32_t{1} << 31, 2147483648.0}};
  double value = -1;
  for (const auto& [stored, expected] : rows) {
    EXPECT_TRUE(numberValue({{"key", stored}}, "key", value)) << expected;
    EXPECT_EQ(value, expected);
  }
  EXPECT_FALSE(numberValue({{"key", std::string("7")}}, "key", value));
  EXPECT_FALSE(numberValue({}, "key", value));
}

}  // namespace
}  // namespace vidloom
