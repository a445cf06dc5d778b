// Build step: turns the readable signature table into the program's slt.dat.
//   kestrin_sltgen data/signatures.txt OUT/slt.dat
#include <cstdio>
#include <fstream>

#include "carve/SignatureFile.h"
#include "carve/SignatureTable.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: kestrin_sltgen signatures.txt slt.dat\n");
        return 2;
    }
    std::string error;
    auto records = kestrin::LoadSignatureTable(argv[1], &error);
    if (!records) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.c_str());
        return 1;
    }
    std::vector<uint8_t> bytes = kestrin::SerializeSignatureFile(*records);
    std::ofstream out(argv[2], std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out) {
        std::fprintf(stderr, "cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
