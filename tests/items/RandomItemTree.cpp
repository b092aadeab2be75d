#include "RandomItemTree.h"

#include "items/ItemBuffer.h"
#include "items/ItemValues.h"
#include "items/ItemVector.h"

#include <cstring>

namespace lm2::items::test {
namespace {

std::string randomName(std::mt19937& random) {
  static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz/-_0123456789";
  std::string name(std::uniform_int_distribution<int>(0, 8)(random), 'x');
  for (char& c : name) c = kLetters[std::uniform_int_distribution<int>(0, sizeof kLetters - 2)(random)];
  return name;
}

std::unique_ptr<CItem> randomItem(std::mt19937& random, int depthLeft) {
  const int kind = std::uniform_int_distribution<int>(0, depthLeft > 0 ? 7 : 6)(random);
  std::string name = randomName(random);
  auto count = [&](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
  switch (kind) {
    case 0: return std::make_unique<CItem>(std::move(name));
    case 1: {
      std::string value(count(40), 'x');
      for (char& c : value) c = static_cast<char>(std::uniform_int_distribution<int>(1, 255)(random));
      return std::make_unique<CItemStringA>(std::move(name), std::move(value));
    }
    case 2: {
      std::u16string value(count(20), u'x');
      for (char16_t& c : value) c = static_cast<char16_t>(std::uniform_int_distribution<int>(1, 0xFFFF)(random));
      return std::make_unique<CItemStringW>(std::move(name), std::move(value));
    }
    case 3: return std::make_unique<CItemULong>(std::move(name), static_cast<std::uint32_t>(random()));
    case 4: {
      const std::uint64_t value = (static_cast<std::uint64_t>(random()) << 32) | random();
      return std::make_unique<CItemULongLong>(std::move(name), value);
    }
    case 5: {
      std::string bytes(count(64), '\0');
      for (char& c : bytes) c = static_cast<char>(random());
      return CItemBuffer::copyOf(std::move(name), bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    }
    case 6: {
      auto flag = std::make_unique<CItemBoolean>(std::move(name));
      flag->setValue(random() & 1);
      return flag;
    }
    default: {
      auto vector = std::make_unique<CItemVector>(std::move(name));
      for (int i = count(5); i > 0; --i) vector->addItem(randomItem(random, depthLeft - 1));
      return vector;
    }
  }
}

}  // namespace

std::unique_ptr<CItem> randomTree(std::mt19937& random, int maxDepth) {
  auto root = std::make_unique<CItemVector>("n/a");
  for (int i = std::uniform_int_distribution<int>(1, 6)(random); i > 0; --i) {
    root->addItem(randomItem(random, maxDepth));
  }
  return root;
}

template <class Kind>
bool sameValue(const CItem& a, const CItem& b) {
  return static_cast<const Kind&>(a).getValue() == static_cast<const Kind&>(b).getValue();
}

std::string compareTrees(const CItem& expected, const CItem& actual) {
  const std::string where = "'" + expected.getName() + "'";
  if (expected.getName() != actual.getName()) return where + ": name " + actual.getName();
  if (expected.getType() != actual.getType()) return where + ": type";
  bool same = true;
  switch (expected.getType()) {
    case kItemStringA: same = sameValue<CItemStringA>(expected, actual); break;
    case kItemStringW: same = sameValue<CItemStringW>(expected, actual); break;
    case kItemULong: same = sameValue<CItemULong>(expected, actual); break;
    case kItemULongLong: same = sameValue<CItemULongLong>(expected, actual); break;
    case kItemBoolean: same = sameValue<CItemBoolean>(expected, actual); break;
    case kItemBuffer: {
      const auto& a = static_cast<const CItemBuffer&>(expected);
      const auto& b = static_cast<const CItemBuffer&>(actual);
      same = a.getLength() == b.getLength() &&
             (a.getLength() == 0 || std::memcmp(a.getData(), b.getData(), a.getLength()) == 0);
      break;
    }
    case kItemVector: {
      const auto& a = static_cast<const CItemVector&>(expected);
      const auto& b = static_cast<const CItemVector&>(actual);
      if (a.count() != b.count()) return where + ": child count";
      for (std::size_t i = 0; i < a.count(); ++i) {
        std::string difference = compareTrees(*a.at(i), *b.at(i));
        if (!difference.empty()) return where + "/" + difference;
      }
      break;
    }
    default:
      break;
  }
  return same ? "" : where + ": value";
}

}  // namespace lm2::items::test
