#include <gmock/gmock.h>
#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>

#include <filesystem>

#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;

/// A node of a graph.
class Node : public Coding {
 public:
  std::string name;
  double weight = 0;
  CodedValue next;

  std::string codingName() const override { return "Node"; }
  void encodeWithCoder(KeyedArchiver& archiver) const override {
    archiver.encodeObject(name, "name");
    archiver.encodeDouble(weight, "weight");
    archiver.encodeObject(next, "next");
  }
  static std::shared_ptr<Node> make(const std::string& name, double weight, CodedValue next = {}) {
    auto node = std::make_shared<Node>();
    node->name = name;
    node->weight = weight;
    node->next = std::move(next);
    return node;
  }
  static std::shared_ptr<Coding> decode(KeyedUnarchiver& unarchiver) {
    return make(unarchiver.decodeObjectForKey("name").text().value_or(""),
                unarchiver.decodeDoubleForKey("weight"), unarchiver.decodeObjectForKey("next"));
  }
};

CodedValue restored(const CodedValue& value) {
  return KeyedUnarchiver(KeyedArchiver::archivedDataWithRootObject(value)).rootObject();
}

/// The sentence with which `action` is refused.
template <typename Action>
std::string refusal(Action action) {
  try {
    action();
  } catch (const ArchiveError& error) {
    return error.what();
  }
  return "";
}

class KeyedArchiverTest : public testing::Test {
 protected:
  KeyedArchiverTest() { registerCodingClass("Node", Node::decode); }

  std::string python(const std::string& script) {
    const RunResult result = run(
        {"python3", "-c", "import plistlib, sys\npath = sys.argv[1]\n" + script, file_.string()});
    if (result.status != 0) throw std::runtime_error("python3: " + result.err);
    return result.out;
  }

  TempDir folder_;
  const std::filesystem::path file_ = folder_ / "archive.plist";
};

TEST_F(KeyedArchiverTest, PlainValuesComeBackAsTheyWere) {
  for (const CodedValue& value :
       {CodedValue(), CodedValue(true), CodedValue(7), CodedValue(INT64_MIN), CodedValue(-0.1),
        CodedValue("text"), CodedValue("$null"), CodedValue(""), CodedValue(CodedValue::Data{1, 2}),
        CodedValue(CodedValue::Date{1.5}), CodedValue(Point{1, -2.5}), CodedValue(Size{3, 0.1}),
        CodedValue(Rect{{1e-9, 2}, {3, 1e300}})})
    EXPECT_EQ(restored(value), value);
}

TEST_F(KeyedArchiverTest, ListsAndDictionariesComeBack) {
  const auto list = restored(CodedValue::Array{1, "a", CodedValue::Array{}, CodedValue()})
                        .as<std::shared_ptr<CodedValue::Array>>();
  ASSERT_EQ(list->size(), 4);
  EXPECT_EQ((*list)[0], CodedValue(1));
  EXPECT_EQ((*list)[1], CodedValue("a"));
  EXPECT_TRUE((*list)[2].as<std::shared_ptr<CodedValue::Array>>()->empty());
  EXPECT_TRUE((*list)[3].isNull());
  const auto dictionary = restored(CodedValue::Dictionary{{"$x", 1.5}, {"y", "z"}})
                              .as<std::shared_ptr<CodedValue::Dictionary>>();
  EXPECT_EQ(*dictionary, (CodedValue::Dictionary{{"$x", 1.5}, {"y", "z"}}));
}

TEST_F(KeyedArchiverTest, ObjectsComeBackWithWhatTheyReferTo) {
  const auto node = restored(Node::make("a", 1.5, Node::make("b", -2))).object<Node>();
  EXPECT_EQ(node->name, "a");
  EXPECT_EQ(node->weight, 1.5);
  EXPECT_EQ(node->next.object<Node>()->name, "b");
  EXPECT_TRUE(node->next.object<Node>()->next.isNull());
}

TEST_F(KeyedArchiverTest, WhatIsReferredToTwiceIsOneObject) {
  const auto shared = Node::make("shared", 1);
  const auto list = restored(CodedValue::Array{CodedValue(shared), CodedValue(shared)})
                        .as<std::shared_ptr<CodedValue::Array>>();
  EXPECT_EQ((*list)[0].object<Node>(), (*list)[1].object<Node>());
}

TEST_F(KeyedArchiverTest, KeysThatBeginWithADollarDoNotMeetTheLayoutsOwn) {
  KeyedArchiver archiver;
  archiver.encodeObject("own", "$class");
  archiver.encodeInt64(5, "number");
  archiver.encodeBool(true, "flag");
  KeyedUnarchiver unarchiver(archiver.finishEncoding());
  EXPECT_EQ(unarchiver.decodeObjectForKey("$class"), CodedValue("own"));
  EXPECT_EQ(unarchiver.decodeInt64ForKey("number"), 5);
  EXPECT_TRUE(unarchiver.decodeBoolForKey("flag"));
}

TEST_F(KeyedArchiverTest, AMissingKeyIsOtherThanAStoredNothing) {
  KeyedArchiver archiver;
  archiver.encodeObject({}, "stored");
  KeyedUnarchiver unarchiver(archiver.finishEncoding());
  EXPECT_TRUE(unarchiver.containsValueForKey("stored"));
  EXPECT_FALSE(unarchiver.containsValueForKey("missing"));
  EXPECT_TRUE(unarchiver.decodeObjectForKey("stored").isNull());
  EXPECT_TRUE(unarchiver.decodeObjectForKey("missing").isNull());
  EXPECT_EQ(unarchiver.decodeDoubleForKey("missing"), 0);
}

TEST_F(KeyedArchiverTest, PythonFindsTheLayoutsKeysAndTypes) {
  ASSERT_TRUE(KeyedArchiver::archiveRootObject(Node::make("a", 1.5), file_.string()));
  EXPECT_EQ(python(R"(
p = plistlib.load(open(path, 'rb'))
o = p['$objects']
root = o[p['$top']['root'].data]
print(p['$archiver'], p['$version'], o[0], sorted(p), list(p['$top']))
print(sorted(root), o[root['name'].data], root['weight'], root['next'])
print(o[root['$class'].data])
)"),
            "NSKeyedArchiver 100000 $null ['$archiver', '$objects', '$top', '$version'] ['root']\n"
            "['$class', 'name', 'next', 'weight'] a 1.5 UID(0)\n"
            "{'$classes': ['Node', 'NSObject'], '$classname': 'Node'}\n");
}

TEST_F(KeyedArchiverTest, ReadsTheLayoutFromPython) {
  python(R"(
U = plistlib.UID
def cls(*names): return {'$classname': names[0], '$classes': list(names)}
plistlib.dump({'$archiver': 'NSKeyedArchiver', '$version': 100000, '$top': {'root': U(1)},
  '$objects': ['$null',
    {'$class': U(2), 'NS.objects': [U(3), U(4), U(0), U(5), U(7), U(9), U(11), U(13)]},
    cls('NSMutableArray', 'NSArray', 'NSObject'),
    'text', 2.5,
    {'$class': U(6), 'name': U(3), 'weight': 7, 'next': U(0)},
    cls('HeavyNode', 'Node', 'NSObject'),
    {'$class': U(8), 'NS.keys': [U(3)], 'NS.objects': [U(4)]},
    cls('NSMutableDictionary', 'NSDictionary', 'NSObject'),
    {'$class': U(10), 'NS.string': 'mutable'},
    cls('NSMutableString', 'NSString', 'NSObject'),
    {'$class': U(12), 'NS.data': b'\1\2'},
    cls('NSMutableData', 'NSData', 'NSObject'),
    {'$class': U(14), 'NS.time': 60.0},
    cls('NSDate', 'NSObject')]},
  open(path, 'wb'), fmt=plistlib.FMT_BINARY)
)");
  const auto list = *KeyedUnarchiver::unarchiveObjectWithFile(file_.string())
                         .as<std::shared_ptr<CodedValue::Array>>();
  ASSERT_EQ(list.size(), 8);
  EXPECT_EQ(list[0], CodedValue("text"));
  EXPECT_EQ(list[1], CodedValue(2.5));
  EXPECT_TRUE(list[2].isNull());
  EXPECT_EQ(list[3].object<Node>()->name, "text");
  EXPECT_EQ(list[3].object<Node>()->weight, 7);  // stored as a whole number
  EXPECT_EQ(*list[4].as<std::shared_ptr<CodedValue::Dictionary>>(),
            (CodedValue::Dictionary{{"text", 2.5}}));
  EXPECT_EQ(list[5], CodedValue("mutable"));
  EXPECT_EQ(list[6], CodedValue(CodedValue::Data{1, 2}));
  EXPECT_EQ(list[7], CodedValue(CodedValue::Date{60}));
}

TEST_F(KeyedArchiverTest, GraphsThatContainThemselvesAreNotStored) {
  const auto node = Node::make("a", 1);
  node->next = CodedValue(std::static_pointer_cast<Coding>(node));
  EXPECT_THAT(refusal([&] { KeyedArchiver::archivedDataWithRootObject(node->next); }),
              HasSubstr("contains itself"));
  node->next = {};
}

TEST_F(KeyedArchiverTest, GraphsThatAreTooDeepAreNotStored) {
  CodedValue list = CodedValue::Array{};
  for (int i = 1; i < 256; ++i) list = CodedValue::Array{list};
  EXPECT_EQ(refusal([&] { restored(list); }), "");
  list = CodedValue::Array{list};
  EXPECT_THAT(refusal([&] { restored(list); }), HasSubstr("too deep"));
}

TEST_F(KeyedArchiverTest, ValuesOfOtherKindsAreRefused) {
  EXPECT_THROW(CodedValue(1).as<std::string>(), ArchiveError);
  EXPECT_THROW(CodedValue("a").text().value().size() > 0 ? CodedValue(1).text() : std::nullopt,
               ArchiveError);
  EXPECT_THROW(CodedValue("a").object<Node>(), ArchiveError);
  EXPECT_EQ(CodedValue(3).as<double>(), 3.0);
  KeyedArchiver archiver;
  archiver.encodeObject("text", "key");
  KeyedUnarchiver unarchiver(archiver.finishEncoding());
  EXPECT_THROW(unarchiver.decodeDoubleForKey("key"), ArchiveError);
}

// --- Archives as an enemy writes them.

using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;
using Uid = PropertyList::Uid;

std::string refusalOf(const PropertyList& list) {
  return refusal([&] { KeyedUnarchiver(list.toData()).rootObject(); });
}

PropertyList archiveOf(Array objects, PropertyList root = Uid{1}) {
  objects.insert(objects.begin(), "$null");
  return Dictionary{{"$archiver", "NSKeyedArchiver"},
                    {"$version", 100000},
                    {"$top", Dictionary{{"root", std::move(root)}}},
                    {"$objects", std::move(objects)}};
}

Dictionary classOf(const std::string& name) {
  return {{"$classname", name}, {"$classes", Array{name, "NSObject"}}};
}

TEST_F(KeyedArchiverTest, WhatIsNoArchiveIsRefused) {
  EXPECT_THAT(refusal([] {
                KeyedUnarchiver(std::vector<uint8_t>{1, 2, 3});
              }),
              HasSubstr("no archive"));
  EXPECT_THAT(refusal([&] { KeyedUnarchiver::unarchiveObjectWithFile(file_.string()); }),
              HasSubstr("No such file"));
  EXPECT_NE(refusalOf(PropertyList(1)), "");
  EXPECT_NE(refusalOf(Dictionary{}), "");
  EXPECT_NE(
      refusalOf(Dictionary{{"$archiver", "Other"}, {"$top", Dictionary{}}, {"$objects", Array{}}}),
      "");
  EXPECT_NE(refusalOf(Dictionary{
                {"$archiver", "NSKeyedArchiver"}, {"$top", Array{}}, {"$objects", Array{}}}),
            "");
  EXPECT_NE(refusalOf(Dictionary{{"$archiver", "NSKeyedArchiver"}, {"$top", Dictionary{}}}), "");
}

TEST_F(KeyedArchiverTest, ReferencesToNothingAreRefused) {
  EXPECT_THAT(refusalOf(archiveOf({}, Uid{1})), HasSubstr("does not have"));
  EXPECT_THAT(refusalOf(archiveOf({}, Uid{UINT32_MAX})), HasSubstr("does not have"));
  EXPECT_THAT(refusalOf(archiveOf({Dictionary{{"$class", Uid{99}}}})), HasSubstr("does not have"));
}

TEST_F(KeyedArchiverTest, CyclesAreRefused) {
  EXPECT_THAT(refusalOf(archiveOf({Dictionary{{"$class", Uid{2}}, {"NS.objects", Array{Uid{1}}}},
                                   classOf("NSArray")})),
              HasSubstr("contains itself"));
  EXPECT_THAT(
      refusalOf(archiveOf(
          {Dictionary{{"$class", Uid{2}}, {"name", Uid{0}}, {"next", Uid{1}}}, classOf("Node")})),
      HasSubstr("contains itself"));
  EXPECT_NE(refusalOf(archiveOf({Dictionary{{"$class", Uid{1}}}})), "");
}

TEST_F(KeyedArchiverTest, ListsThatMultiplyAreMadeOnce) {
  constexpr uint32_t kLevels = 60;
  Array objects;
  for (uint32_t i = 1; i <= kLevels; ++i)
    objects.push_back(
        Dictionary{{"$class", Uid{kLevels + 2}}, {"NS.objects", Array(10, Uid{i + 1})}});
  objects.push_back("end");
  objects.push_back(classOf("NSArray"));
  EXPECT_EQ(refusalOf(archiveOf(objects)), "");
}

TEST_F(KeyedArchiverTest, TextsAndDataThatMultiplyAreRefused) {
  const auto listOf = [](PropertyList what) {
    return refusalOf(
        archiveOf({Dictionary{{"$class", Uid{2}}, {"NS.objects", Array(20000, Uid{3})}},
                   classOf("NSArray"), std::move(what)}));
  };
  EXPECT_EQ(listOf("short"), "");
  EXPECT_THAT(listOf(std::string(100000, 'x')), HasSubstr("multiply"));
  EXPECT_THAT(listOf(PropertyList::Data(100000, 7)), HasSubstr("multiply"));
  EXPECT_THAT(refusalOf(archiveOf({Dictionary{{"$class", Uid{2}},
                                              {"NS.keys", Array(20000, Uid{3})},
                                              {"NS.objects", Array(20000, Uid{0})}},
                                   classOf("NSDictionary"), std::string(100000, 'x')})),
              HasSubstr("multiply"));
}

// Looked through anew for each object, the names would take many minutes.
TEST_F(KeyedArchiverTest, AClassWithManyNamesIsUnderstoodOnce) {
  constexpr size_t kMany = 100000;
  Array names(kMany, "Stranger");
  names.emplace_back("NSArray");
  Array objects{Dictionary{{"$classname", "Stranger"}, {"$classes", names}},
                Dictionary{{"$class", Uid{1}}, {"NS.objects", Array{}}}};
  Array references;
  for (size_t i = 0; i < kMany; ++i) {
    references.emplace_back(Uid{static_cast<uint32_t>(objects.size() + 1)});
    objects.emplace_back(Dictionary{{"$class", Uid{1}}, {"NS.objects", Array{}}});
  }
  objects[1] = Dictionary{{"$class", Uid{1}}, {"NS.objects", references}};
  EXPECT_EQ(refusalOf(archiveOf(objects, Uid{2})), "");
}

TEST_F(KeyedArchiverTest, ListsThatLieTooDeepAreRefused) {
  constexpr uint32_t kLevels = 100000;
  Array objects{classOf("NSArray")};
  for (uint32_t i = 0; i < kLevels; ++i)
    objects.push_back(Dictionary{{"$class", Uid{1}}, {"NS.objects", Array{Uid{i + 3}}}});
  objects.push_back("end");
  EXPECT_THAT(refusalOf(archiveOf(objects, Uid{2})), HasSubstr("too deep"));
}

TEST_F(KeyedArchiverTest, WrongTypesAreRefused) {
  const auto refusalOfObject = [](Dictionary object, const std::string& name) {
    object["$class"] = Uid{2};
    return refusalOf(archiveOf({object, classOf(name)}));
  };
  EXPECT_NE(refusalOfObject({{"NS.objects", 1}}, "NSArray"), "");
  EXPECT_NE(refusalOfObject({}, "NSArray"), "");
  EXPECT_NE(refusalOfObject({{"NS.objects", Array{Array{}}}}, "NSArray"), "");
  EXPECT_NE(refusalOfObject({{"NS.objects", Array{}}, {"NS.keys", Array{"a"}}}, "NSDictionary"),
            "");
  EXPECT_NE(refusalOfObject({{"NS.objects", Array{1}}, {"NS.keys", Array{1}}}, "NSDictionary"), "");
  EXPECT_NE(refusalOfObject({{"NS.special", 9}}, "NSValue"), "");
  EXPECT_NE(refusalOfObject({{"NS.special", 1}}, "NSValue"), "");
  for (const char* text : {"", "{1}", "{1, 2, 3}", "{a, b}", "1 2 nonsense"})
    EXPECT_NE(refusalOfObject({{"NS.special", 1}, {"NS.pointval", text}}, "NSValue"), "") << text;
  EXPECT_NE(refusalOfObject({{"name", 5}}, "Node"), "");
  EXPECT_NE(refusalOfObject({{"weight", "heavy"}}, "Node"), "");
  EXPECT_THAT(refusalOfObject({}, "Stranger"), HasSubstr("'Stranger' is unknown"));
  EXPECT_NE(refusalOf(archiveOf({Dictionary{{"$class", "Node"}}})), "");
  EXPECT_NE(refusalOf(archiveOf({Dictionary{{"$class", Uid{0}}}})), "");
  EXPECT_NE(refusalOf(archiveOf({Dictionary{}})), "");
}

}  // namespace
}  // namespace kestrel::test
