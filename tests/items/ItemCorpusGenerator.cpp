// Writes the seed corpus of the unpackItem fuzzer: a few hand-made streams (the smallest vector, a
// tree with every kind of item nested, a session service request), one file each, into the first
// directory; further directories (the fuzzer's working corpus) are created empty.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "items/ItemBuffer.h"
#include "items/ItemStream.h"
#include "items/ItemValues.h"

using namespace lm2::items;

namespace {

void write(const std::filesystem::path& file, const lm2::SecureBuffer& stream) {
  std::ofstream out(file, std::ios::binary);
  out.write(reinterpret_cast<const char*>(stream.data()), static_cast<std::streamsize>(stream.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s SEED_DIRECTORY [MORE_DIRECTORIES...]\n", argv[0]);
    return 2;
  }
  for (int i = 1; i < argc; ++i) std::filesystem::create_directories(argv[i]);
  const std::filesystem::path directory = argv[1];

  write(directory / "empty-vector", packItem(CItemVector("x")));

  CItemVector request("n/a");
  CItemULong command("ct", 4);
  CItemVector parameters("pt");
  CItemULong session("psi", 1);
  std::uint8_t identity[] = {0x10, 0x20, 0x30, 0x40};
  CItemBuffer token("ptsi", identity, sizeof identity, false);
  CItemStringA user("pun", "anna");
  CItemStringA second("pus", "");
  request.addItem(&command, false);
  parameters.addItem(&session, false);
  parameters.addItem(&token, false);
  parameters.addItem(&user, false);
  parameters.addItem(&second, false);
  request.addItem(&parameters, false);
  write(directory / "session-request", packItem(request));

  CItemVector every("every");
  auto nested = std::make_unique<CItemVector>("nested");
  nested->addItem(std::make_unique<CItemStringW>("w", u"\u00e4b"));
  nested->addItem(std::make_unique<CItemULongLong>("l", 0x0102030405060708ull));
  auto flag = std::make_unique<CItemBoolean>("f");
  flag->setValue(true);
  nested->addItem(std::move(flag));
  every.addItem(std::move(nested));
  every.addItem(std::make_unique<CItem>("e"));
  every.addItem(CItemBuffer::copyOf("b", identity, sizeof identity));
  write(directory / "every-kind", packItem(every));
  return 0;
}
