// The pieces of the kit that need no route.
#include <gtest/gtest.h>

#include <vorn/Plugin.h>

#include "testkit/LogFile.h"
#include "testkit/Samples.h"

namespace {

using vorn::Parameter;

// Red if a value is cut instead of rounded, wraps instead of saturating, a byte order or a NaN gets through, or a loop
// for the processor at hand gives another sample than that for any.
template <class Real>
void ExpectExactCodec() {
  for (const auto format : testkit::FORMATS) {
    const double full = testkit::FullScale(format);
    std::vector<Real> values{
        0, 1, -1, 2, -2, std::numeric_limits<Real>::infinity(), -std::numeric_limits<Real>::infinity()};
    for (int i = -9; i <= 9; ++i) values.push_back(static_cast<Real>(i / 2.0 / full));  // ties
    for (const double number : testkit::RandomNumbers(vorn::SampleFormat::S32_LE, 4001)) {
      values.push_back(static_cast<Real>(number / 2147483648.0 * 1.1));
    }
    if (!testkit::IsFloat(format)) values[40] = values.back() = std::numeric_limits<Real>::quiet_NaN();
    std::vector<std::uint8_t> bytes(values.size() * vorn::BytesPerSample(format)), plain = bytes;
    vorn::Encode(format, values.data(), bytes.data(), values.size());
    const auto numbers = testkit::Numbers(format, bytes);
    std::vector<Real> back(values.size()), plainBack = back;
    vorn::Decode(format, bytes.data(), back.data(), back.size());
    vorn::WithFormat(format, [&](auto f) {
      vorn::EncodeAs<decltype(f)::value>(values.data(), plain.data(), values.size());
      vorn::DecodeAs<decltype(f)::value>(bytes.data(), plainBack.data(), back.size());
    });
    EXPECT_TRUE(plain == bytes && plainBack == back) << vorn::FormatName(format);
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (values[i] != values[i]) values[i] = 0;
      ASSERT_EQ(numbers[i], testkit::Nearest(format, values[i] * full)) << vorn::FormatName(format) << " " << values[i];
      ASSERT_EQ(back[i], static_cast<Real>(numbers[i] / full));
    }
  }
}
TEST(SampleCodec, IsTheNearestSampleInFloatAndInDouble) {
  ExpectExactCodec<float>();
  ExpectExactCodec<double>();
}

class Probe : public vorn::PluginBlock {
 public:
  enum : unsigned { NUMBER, COUNT, SURE, SIZE, NAME, LEVEL, OWN };

  static vorn::Description Describe() {
    return vorn::Description("probe", "")
        .Takes(Parameter::Number(NUMBER, "number", "dB", -1, 1).Default(0.5).Positional().Live())
        .Takes(Parameter::Integer(COUNT, "count", "", 0, 9).Default(1))
        .Takes(Parameter::Flag(SURE, "sure").Default(true))
        .Takes(Parameter::Word(SIZE, "size", "small middle large").Default("middle").Live())
        .Takes(Parameter::Text(NAME, "name").Positional().Live())
        .Takes(Parameter::Reading(LEVEL, "level", "dBFS"))
        .OwnParameters();
  }
  explicit Probe(vorn::Setup setup) : PluginBlock(std::move(setup)) {
    if (Text(NAME) == "bad") throw std::runtime_error("bad name");
    Extend({Parameter::Number(OWN, "own", "", 0, 1)});
    Store(COUNT, 8);  // is no reading
  }

 protected:
  long Process() override { return vorn::FRAME_DONE; }
  void OnSet(unsigned id) override {
    if (id == NAME && Text(NAME) == "bad") throw std::runtime_error("bad name");
    if (id == OWN && Number(OWN) == 0.5) throw std::runtime_error("bad number");
  }
  void OnGet(unsigned) override {
    for (unsigned any = NUMBER; any <= OWN + 1; ++any) Store(any, -3.5);
  }
};

std::unique_ptr<vorn::Block> Make(const std::vector<std::string>& arguments) {
  return std::unique_ptr<vorn::Block>(vorn::CreatePluginBlock<Probe>(true, true, arguments));
}

// Red if an argument is taken that should not be, or refused without its name, what came, and what is taken.
TEST(Parameters, ArgumentsAreCheckedAndNamed) {
  testkit::LogFile log;
  const std::pair<std::vector<std::string>, const char*> refused[] = {
      {{"2"}, "probe: argument 'number': got '2', takes a number from -1 to 1 dB"},
      {{"number=1x"}, "argument 'number': got '1x'"},
      {{"count=1.5"}, "argument 'count': got '1.5', takes a whole number from 0 to 9"},
      {{"sure=maybe"}, "argument 'sure': got 'maybe', takes true or false"},
      {{"size=mid"}, "argument 'size': got 'mid', takes one of: small middle large"},
      {{"0", "number=1"}, "argument 'number': given twice"},
      {{"0", "a", "b"}, "argument 'b': too many without a name; takes number name"},
      {{"level=3"}, "argument 'level': unknown; takes number count sure size name own"},
      {{"own=2"}, "argument 'own': got '2', takes a number from 0 to 1"},
      {{"name=bad"}, "probe: bad name"}};
  for (const auto& [arguments, line] : refused) {
    EXPECT_EQ(Make(arguments), nullptr) << line;
    EXPECT_TRUE(log.Has(line)) << line;
  }
  const auto block = Make({"own=1", "-1e-1", "/a b=c%", "sure=no", "count=+9"});
  ASSERT_NE(block, nullptr);
  std::vector<std::string> table;
  EXPECT_EQ(block->GetParameter(vorn::PARAMETER_TABLE, table), 0);
  EXPECT_EQ(table,
            (std::vector<std::string>{"0 number dB -1..1 -0.1 live - given", "1 count - 0..9 9 stopped - given",
                                      "2 sure - false|true false stopped - given",
                                      "3 size - small|middle|large middle live", "4 name - - /a%20b=c%25 live - given",
                                      "5 level dBFS - -3.5 read", "6 own - 0..1 1 stopped - given"}));
  for (const std::string& line : table) {
    const auto parsed = vorn::ParameterLine::Parse(line);
    ASSERT_TRUE(parsed) << line;
    EXPECT_EQ(parsed->ToString(), line);
  }
  EXPECT_EQ(vorn::ParameterLine::Parse(table[4])->value, "/a b=c%");
  EXPECT_EQ(vorn::ParameterLine::Parse("0 a - - %2D live")->ToString(), "0 a - - %2D live");
  for (const char* other : {"", "0 a - - 1", "x a - - 1 live"})
    EXPECT_FALSE(vorn::ParameterLine::Parse(other)) << other;
}

// Red if a label is taken for an argument, makes a name that is no part of a file's, or says what the plug-in says.
TEST(Label, IsPartOfTheName) {
  const std::pair<const char*, const char*> cases[] = {{"left", "left"},         {"probe", ""},
                                                       {"probe_3", ""},          {"probe_left_3", "left"},
                                                       {"probe_x", "probe_x"},   {"a b/c.d-e", "a_b_c_d-e"},
                                                       {"probes_0", "probes_0"}, {"\xE4\x2E", ""}};
  for (const auto& [label, subname] : cases) {
    const auto block = Make({"0.5", std::string(vorn::LABEL_ARGUMENT) + label, "name"});
    ASSERT_NE(block, nullptr) << label;
    EXPECT_EQ(block->Subname() ? block->Subname() : "", std::string(subname)) << label;
  }
  EXPECT_EQ(Make({})->Subname(), nullptr);
  EXPECT_EQ(vorn::SubnameOf(std::string(300, 'x'), "probe").size(), 64U);
}

// Red if a refused value changes anything, or one that cannot change while running does.
TEST(Parameters, AreSetAndReadById) {
  const auto block = Make({});
  std::vector<std::string> value;
  ASSERT_EQ(block->BaseStart(), 0);
  const std::pair<unsigned, const char*> refused[] = {{0, "1.01"}, {1, "2"},  {3, "huge"}, {4, "bad"},
                                                      {5, "1"},    {99, "1"}, {0, ""}};
  for (const auto& [id, text] : refused) EXPECT_EQ(block->SetParameter(id, {text}), -20) << id;
  const std::pair<unsigned, const char*> now[] = {{0, "0.5"}, {1, "1"}, {3, "middle"}, {4, ""}, {5, "-3.5"}};
  for (const auto& [id, text] : now) {
    EXPECT_EQ(block->GetParameter(id, value), 0);
    EXPECT_EQ(value, std::vector<std::string>{text}) << id;
  }
  EXPECT_EQ(block->SetParameter(4, {"two", "words"}), 0);
  EXPECT_EQ(block->BaseStop(), 0);
  EXPECT_EQ(block->SetParameter(1, {"2"}), 0);
  EXPECT_EQ(block->SetParameter(6, {"0.5"}), -20);
  block->GetParameter(6, value);
  EXPECT_EQ(value, std::vector<std::string>{""});
  block->GetParameter(4, value);
  EXPECT_EQ(value, std::vector<std::string>{"two words"});
  EXPECT_EQ(block->GetParameter(99, value), -20);
}

}  // namespace
