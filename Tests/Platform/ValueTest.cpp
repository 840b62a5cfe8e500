#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/SharedDictionary.h>
#include <VeltoConnectFoundation/Platform/ValueBuilder.h>

#include <Tests/Support/PrintValue.h>
#include <Tests/Support/SmallStack.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <thread>

namespace {

using namespace velto;

constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
constexpr auto highest = std::numeric_limits<std::int64_t>::max();
constexpr auto highestUnsigned = std::numeric_limits<std::uint64_t>::max();
constexpr double infinity = std::numeric_limits<double>::infinity();

const std::string longText(40, 'x');

static_assert(sizeof(Value) == 16);

/// Of every kind and each of its forms, all different from each other.
std::vector<Value> oneOfEach() {
    return {
        Value(),
        Null{},
        true,
        2,
        -2,
        highest,
        lowest,
        highestUnsigned,
        0.5,
        0.1F,
        0.1,
        infinity,
        -infinity,
        std::nan(""),
        "",
        "short",
        "fourteen bytes",
        "fifteen bytes !",
        longText,
        std::string("a\0b", 3),
        Data(),
        Data("bytes"),
        Date{1},
        Array(),
        Array{1, 2},
        Array{2, 1},
        Array{Array()},
        Dictionary(),
        Dictionary{{"a", 1}},
        Dictionary{{"a", 2}},
        Dictionary{{"b", 1}},
        Dictionary{{Array{1}, 1}},
        Error("D", 1),
    };
}

TEST(Value, ComparesAndHashesByContent) {
    const std::vector<Value> values = oneOfEach();
    const std::vector<Value> others = oneOfEach();
    for (std::size_t i = 0; i < values.size(); ++i) {
        for (std::size_t j = 0; j < others.size(); ++j) {
            EXPECT_EQ(values[i] == others[j], i == j)
                << values[i].description() << " and " << others[j].description();
        }
        EXPECT_EQ(values[i].hash(), others[i].hash()) << values[i].description();
    }
}

template <class Container>
Value emptied(Container container, int key) {
    container.remove(static_cast<std::size_t>(key));
    return container;
}

TEST(Value, ComparesAndHashesByValueInAnyForm) {
    const struct {
        const char* name;
        Value left;
        Value right;
        bool equal;
    } rows[] = {
        {"true is one", true, 1, true},
        {"one is 1.0", 1, 1.0, true},
        {"false is minus zero", false, -0.0, true},
        {"float and double of an exact fraction", 0.25F, 0.25, true},
        {"float and double of another", 0.1F, 0.1, false},
        {"signed and unsigned", 7, 7U, true},
        {"minus one is not the highest", -1, highestUnsigned, false},
        {"2^53 + 1 has no double", (std::int64_t{1} << 53) + 1, 9007199254740992.0, false},
        {"the highest is not 2^63", highest, 9223372036854775808.0, false},
        {"2^63", std::uint64_t{1} << 63, 9223372036854775808.0, true},
        {"the highest unsigned is not 2^64", highestUnsigned, 18446744073709551616.0, false},
        {"the lowest", lowest, -9223372036854775808.0, true},
        {"a number is no text", 1, "1", false},
        {"an emptied array", Array(), emptied(Array{1}, 0), true},
        {"an emptied dictionary", Dictionary(), emptied(Dictionary{{1, 2}}, 1), true},
        {"another order", Dictionary{{"a", 1}, {"b", Array{2}}},
         Dictionary{{"b", Array{2}}, {"a", true}}, true},
        {"within others", Array{Array(), Dictionary(), Array{Dictionary{{1, 2}, {3, 4}}}},
         Array{Array(), Dictionary(), Array{Dictionary{{3, 4}, {1, 2}}}}, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.left == row.right, row.equal);
        EXPECT_EQ(row.right == row.left, row.equal);
        if (row.equal) {
            EXPECT_EQ(row.left.hash(), row.right.hash());
            EXPECT_EQ((Dictionary{{row.left, "found"}}.valueForKey(row.right)), "found");
        }
    }
}

TEST(Value, ReadsLeniently) {
    const struct {
        Value value;
        bool truth;
        std::int64_t integer;
        std::uint64_t natural;
        double number;
    } rows[] = {
        {Value(), false, 0, 0, 0},
        {Null{}, false, 0, 0, 0},
        {Array{1}, false, 0, 0, 0},
        {true, true, 1, 1, 1},
        {-3, true, -3, 0, -3},
        {highestUnsigned, true, highest, highestUnsigned, 18446744073709551616.0},
        {2.9, true, 2, 2, 2.9},
        {-2.9, true, -2, 0, -2.9},
        {1e300, true, highest, highestUnsigned, 1e300},
        {-infinity, true, lowest, 0, -infinity},
        {"12x", true, 12, 12, 12},
        {" \t+7.5e1z", true, 7, 7, 75},
        {"-5", true, -5, 0, -5},
        {"- 1", false, 0, 0, 0},
        {"9223372036854775808", true, highest, std::uint64_t{1} << 63, 9223372036854775808.0},
        {"-9223372036854775809", true, lowest, 0, -9223372036854775808.0},
        {"YES", true, 0, 0, 0},
        {"true", true, 0, 0, 0},
        {"no", false, 0, 0, 0},
        {"000", false, 0, 0, 0},
        {"+00y", true, 0, 0, 0},
        {"99999999999999999999", true, highest, highestUnsigned, 1e20},
        {"-99999999999999999999", true, lowest, 0, -1e20},
        {"-9223372036854775808", true, lowest, 0, -9223372036854775808.0},
        {"1e999", true, 1, 1, infinity},
        {"-1e-999", true, -1, 0, 0},
        {"inf", false, 0, 0, 0},
        {"", false, 0, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value.description());
        EXPECT_EQ(row.value.boolValue(), row.truth);
        EXPECT_EQ(row.value.integerValue(), row.integer);
        EXPECT_EQ(row.value.unsignedValue(), row.natural);
        EXPECT_EQ(row.value.doubleValue(), row.number);
    }
    EXPECT_EQ(Value(std::nan("")).integerValue(), 0);
}

TEST(Value, DescribesItself) {
    const struct {
        Value value;
        std::string text;
    } rows[] = {
        {Value(), "(null)"},
        {Null{}, "<null>"},
        {true, "1"},
        {false, "0"},
        {lowest, "-9223372036854775808"},
        {highestUnsigned, "18446744073709551615"},
        {0.1, "0.1"},
        {0.1 + 0.2, "0.3"},
        {1.0 / 3, "0.3333333333333333"},
        {9007199254740992.0, "9007199254740992"},
        {1e16, "1e+16"},
        {-0.0, "-0"},
        {-infinity, "-inf"},
        {-std::nan(""), "nan"},
        {0.1F, "0.1"},
        {100000.0F, "100000"},
        {16777216.0F, "1.6777216e+07"},
        {1.0F / 3, "0.33333334"},
        {"a \"b\"", "a \"b\""},
        {Data("\x01\xff"), "{length = 2, bytes = 0x01ff}"},
        {Date{0}, "2001-01-01 00:00:00 +0000"},
        {Date::fromUnixSeconds(-0.5), "1969-12-31 23:59:59 +0000"},
        {Array(), "(\n)"},
        {Dictionary(), "{\n}"},
        {Array{"word", "two words", "q\"\n", Array{1, Dictionary{}}},
         "(\n    word,\n    \"two words\",\n    \"q\\\"\\n\",\n    (\n        1,\n        {\n"
         "        }\n    )\n)"},
        {Dictionary{{"k", 1}, {2, Dictionary{{"in", Null{}}}}, {Array{1}, "x"}},
         "{\n    k = 1;\n    2 = {\n        in = <null>;\n    };\n    (\n        1\n    ) = x;\n}"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.value.description(), row.text);
    }
}

TEST(Value, LooksUpWithoutThrowing) {
    const Value value = Dictionary{{"a", Dictionary{{"b", Array{"x", longText}}}}, {"", 7}};
    EXPECT_EQ(value["a"]["b"][1], longText);
    EXPECT_EQ(value["a"]["b"][std::size_t{0}], "x");
    EXPECT_TRUE(value["a"]["b"][2].isNone());
    EXPECT_TRUE(value["none"]["b"]["c"].isNone());
    EXPECT_TRUE(value["a"][std::size_t{0}].isNone());
    EXPECT_EQ(Value(value)["a"]["b"][1], longText);
    EXPECT_EQ(value.valueAtKeyPath("a.b")[1].string(), longText);
    EXPECT_TRUE(value.valueAtKeyPath("a.b.c").isNone());
    EXPECT_EQ(value.valueAtKeyPath(""), 7);
    EXPECT_TRUE(Array().last().isNone());
}

TEST(Value, CopiesShareUntilOneIsChanged) {
    const Value inner = Array{longText, 2};
    Array first{inner, "b", 3};
    const Array second = first;
    EXPECT_EQ(first.begin(), second.begin());
    first.set(1, "c");
    first.append(first);
    first.remove(0);
    first.insert(1, longText);
    EXPECT_EQ(second, (Array{inner, "b", 3}));
    EXPECT_EQ(first, (Array{"c", longText, 3, inner, "c", 3}));
    EXPECT_EQ(first[3].array().begin(), inner.array().begin());

    Dictionary one{{"a", inner}, {"b", 2}};
    const Dictionary two = one;
    EXPECT_EQ(one.begin(), two.begin());
    one.set("c", 3);
    one.set("a", 1);
    one.set("b", Value());
    EXPECT_EQ(two, (Dictionary{{"b", 2}, {"a", inner}}));
    EXPECT_EQ(one.description(), "{\n    a = 1;\n    c = 3;\n}");
    one.merge(two);
    EXPECT_EQ(one, (Dictionary{{"a", inner}, {"c", 3}, {"b", 2}}));
    one.remove(one.begin()->key);
    EXPECT_EQ(one.begin()->key, "c");

    Data bytes("abc");
    const Data before = bytes;
    bytes.append(bytes.bytes(), 3);
    EXPECT_EQ(before.view(), "abc");
    EXPECT_EQ(bytes.view(), "abcabc");
}

TEST(Data, PartsAndAdoptedBlocksLiveAsLongAsTheyAreHeld) {
    Data part;
    {
        void* block = std::malloc(1000);
        std::memset(block, 'm', 1000);
        const Data whole = Data::adoptingMalloc(block, 1000);
        part = whole.subdata(100, 800).subdata(700, 5000);
        EXPECT_EQ(whole.subdata(2000, 1).length(), 0U);
        EXPECT_EQ(part.length(), 100U);
    }
    EXPECT_EQ(part.view(), std::string(100, 'm'));
    part.append("!", 1);
    EXPECT_EQ(part.length(), 101U);
    std::vector<std::uint8_t> vector(3, 'v');
    const std::uint8_t* address = vector.data();
    Data taken(std::move(vector));
    EXPECT_EQ(taken.bytes(), address);
    taken.append("w", 1);
    EXPECT_EQ(taken.view(), "vvvw");
}

/// Against a plain list, with keys of several kinds, so that small and indexed forms, removal and
/// growth agree.
TEST(Dictionary, KeepsInsertionOrderThroughAnyChange) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round) {
        Dictionary dictionary;
        std::vector<std::pair<Value, int>> model;
        std::vector<Dictionary> copies;
        for (int step = 0; step < 120; ++step) {
            const int number = static_cast<int>(random() % 40);
            const Value key = number % 4 == 0   ? Value(number)
                              : number % 4 == 1 ? Value("key " + std::to_string(number))
                              : number % 4 == 2 ? Value(longText + std::to_string(number))
                                                : Value(Array{number});
            const auto known = std::find_if(model.begin(), model.end(),
                                            [&](const auto& entry) { return entry.first == key; });
            if (random() % 3 == 0) {
                dictionary.remove(key);
                if (known != model.end()) {
                    model.erase(known);
                }
            } else {
                dictionary.set(key, step);
                if (known != model.end()) {
                    known->second = step;
                } else {
                    model.emplace_back(key, step);
                }
            }
            if (random() % 16 == 0) {
                copies.push_back(dictionary);
            }
        }
        ASSERT_EQ(dictionary.size(), model.size());
        for (std::size_t i = 0; i < model.size(); ++i) {
            ASSERT_EQ(dictionary.begin()[i].key, model[i].first);
            ASSERT_EQ(dictionary.valueForKey(model[i].first), model[i].second);
        }
    }
}

/// `depth` arrays, dictionaries and dictionaries as keys in turn, around a 1.
Value nested(std::size_t depth, bool inArena) {
    if (inArena) {
        detail::ValueBuilder builder(0);
        for (std::size_t i = 0; i < depth; ++i) {
            if (i % 3 == 1) {
                builder.pushText("key", 3);
            }
        }
        builder.push(1.0);
        for (std::size_t i = depth; i-- > 0;) {
            if (i % 3 == 0) {
                builder.closeArray(builder.size() - 1);
            } else if (i % 3 == 1) {
                builder.closeDictionary(builder.size() - 2);
            } else {
                builder.push(true);
                builder.closeDictionary(builder.size() - 2);
            }
        }
        return builder.finish();
    }
    Value value = 1;
    for (std::size_t i = depth; i-- > 0;) {
        if (i % 3 == 0) {
            value = Array{std::move(value)};
        } else if (i % 3 == 1) {
            value = Dictionary{{"key", std::move(value)}};
        } else {
            value = Dictionary{{std::move(value), true}};
        }
    }
    return value;
}

TEST(Value, AnyDepthNeedsNoStack) {
    constexpr std::size_t depth = 1'000'000;
    velto::testing::onSmallStack([] {
        Value heap = nested(depth, false);
        const Value arena = nested(depth, true);
        EXPECT_TRUE(heap == arena);
        EXPECT_TRUE(arena == heap);
        EXPECT_EQ(heap.hash(), arena.hash());
        const std::string text = heap.description();
        EXPECT_GT(text.size(), depth * 4);
        EXPECT_EQ(text, arena.description());
        EXPECT_TRUE(nested(depth + 1, false) != arena);
        const Dictionary keyed{{heap, "heap"}, {nested(depth - 3, false), "other"}};
        EXPECT_EQ(keyed.valueForKey(arena), "heap");
        Value copy = heap;
        heap = Value();
        Array changed = copy.array();
        changed.append(arena);
        copy = Value();
    });
}

/// Keys that a hostile document may choose: where their hashes agree this takes minutes.
TEST(Dictionary, HoldsManyKeysThatDifferInLittle) {
    const struct {
        const char* name;
        Value (*key)(std::uint64_t);
    } rows[] = {
        {"the last value of arrays",
         [](std::uint64_t i) {
             Array array;
             for (int zeros = 0; zeros < 100; ++zeros) {
                 array.append(0);
             }
             array.append(i);
             return Value(array);
         }},
        {"deep in arrays",
         [](std::uint64_t i) {
             Value value(i);
             for (int depth = 0; depth < 20; ++depth) {
                 value = Array{value};
             }
             return value;
         }},
        {"within the dictionaries of dictionaries",
         [](std::uint64_t i) {
             return Value(Dictionary{{"a", Dictionary{{"b", Dictionary{{Array{i}, 1}}}}}});
         }},
        {"the high bits of doubles",
         [](std::uint64_t i) { return Value(std::bit_cast<double>(i << 46 | 1)); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Dictionary dictionary;
        for (std::uint64_t i = 0; i < 20'000; ++i) {
            dictionary.set(row.key(i), i);
        }
        EXPECT_EQ(dictionary.size(), 20'000U);
        EXPECT_EQ(dictionary.valueForKey(row.key(19'998)), 19'998);
        Dictionary other;
        for (std::uint64_t i = 20'000; i-- > 0;) {
            other.set(row.key(i), i);
        }
        EXPECT_TRUE(dictionary == other);
        other.set(row.key(0), 1);
        EXPECT_FALSE(dictionary == other);
    }
}

TEST(Value, ObjectsThatHoldEachOtherAreFreedWithoutStack) {
    velto::testing::onSmallStack([] {
        Error error("D", 0);
        for (int i = 1; i < 200'000; ++i) {
            error = Error("D", i, {{UnderlyingErrorKey, error}});
        }
        EXPECT_EQ(error.underlyingError().code(), 199'998);
    });
}

Value arenaDocument() {
    detail::ValueBuilder builder(100);
    builder.pushText("numbers", 7);
    for (int i = 0; i < 100; ++i) {
        builder.push(i * 0.5);
    }
    builder.closeArray(1);
    for (int i = 0; i < 30; ++i) {  // Each key three times: the last value wins.
        const std::string key = "a key that is long, number " + std::to_string(i % 10);
        builder.pushText(key.data(), key.size());
        builder.pushText((longText + std::to_string(i)).data(), longText.size() + 2);
    }
    builder.closeDictionary(0);
    return builder.finish();
}

TEST(ValueBuilder, TheLastHandleOfAnyPartKeepsTheArena) {
    Value document = arenaDocument();
    EXPECT_EQ(document.dictionary().size(), 11U);
    EXPECT_EQ(document["a key that is long, number 3"], longText + "23");
    const Value copy = document;
    const Array numbers = document["numbers"].array();
    const Value text = document["a key that is long, number 5"];
    Dictionary changed = document.dictionary();
    changed.set("numbers", numbers);
    changed.set("more", document);
    Array longer = numbers;
    longer.append("end");
    document = Value();
    EXPECT_EQ(copy, arenaDocument());
    EXPECT_EQ(text, longText + "25");
    EXPECT_EQ(numbers[99], 49.5);
    EXPECT_EQ(longer.size(), 101U);
    EXPECT_EQ(changed["more"], copy);
    EXPECT_EQ(changed["a key that is long, number 9"], longText + "29");
    const Value gone = std::move(longer);
    EXPECT_EQ(gone[100], "end");
}

TEST(Value, MayBeReadAndCopiedByManyThreads) {
    const Value values[] = {arenaDocument(), nested(1000, false), Data(longText), longText};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (unsigned number = 0; number < 4; ++number) {
        threads.emplace_back([&values] {
            for (int round = 0; round < 200; ++round) {
                for (const Value& value : values) {
                    const Value copy = value;
                    Array list{copy, value};
                    list.append(copy["numbers"]);
                    Dictionary dictionary = value.dictionary();
                    dictionary.set("own", list);
                    EXPECT_EQ(dictionary["own"][0], value);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(SharedDictionary, TakesChangesFromManyThreads) {
    SharedDictionary shared(Dictionary{{"first", 1}});
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&shared, number] {
            for (int i = 0; i < 100; ++i) {
                shared.set(number * 1000 + i, longText);
                EXPECT_EQ(shared["first"], 1);
            }
            shared.merge(Dictionary{{"thread " + std::to_string(number), number}});
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(shared.size(), 405U);
    shared.remove("first");
    EXPECT_TRUE(shared["first"].isNone());
}

}  // namespace
