// What does Base64 cost, from bytes to a new text object and from a text to a new byte list? 1 MiB of random bytes both
// ways, beside OpenSSL's block functions and a plain copy of what goes in. Every side takes the memory of its output in
// each round; only ours has to look for the end of the text that it decodes.

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <VxCommon/VcLib/VcBase64.h>

namespace
{

using Bytes = std::vector<unsigned char>;

const Bytes& Plain()
{
    static const Bytes bytes = [] {
        std::mt19937 random(1);
        Bytes made(1 << 20);
        for (unsigned char& byte : made) {
            byte = static_cast<unsigned char>(random());
        }
        return made;
    }();
    return bytes;
}

/// The text of Plain() and its NUL.
const Bytes& Text()
{
    static const Bytes text = [] {
        Bytes made((Plain().size() + 2) / 3 * 4 + 1);
        EVP_EncodeBlock(made.data(), Plain().data(), static_cast<int>(Plain().size()));
        return made;
    }();
    return text;
}

void EncodeOurs(benchmark::State& state)
{
    for (auto _ : state) {
        Nucleo::Handle<Nucleo::String> text;
        VcBase64_Encode(Plain().data(), Plain().size(), text.Receive(), nullptr);
        benchmark::DoNotOptimize(text->CStr());
    }
}
BENCHMARK(EncodeOurs)->Name("Base64/ours/encode");

void DecodeOurs(benchmark::State& state)
{
    for (auto _ : state) {
        Nucleo::Handle<Nucleo::ArrayList<std::uint8_t>> bytes;
        VcBase64_Decode(reinterpret_cast<const char*>(Text().data()), bytes.Receive(), nullptr);
        benchmark::DoNotOptimize(&bytes->At(0));
    }
}
BENCHMARK(DecodeOurs)->Name("Base64/ours/decode");

/// Into a new block of `room` bytes.
template <class Convert>
void Peer(benchmark::State& state, const Bytes& from, std::size_t room, Convert convert)
{
    for (auto _ : state) {
        const std::unique_ptr<unsigned char[]> to(new unsigned char[room]);
        convert(to.get(), from);
        benchmark::DoNotOptimize(to.get());
        benchmark::ClobberMemory();
    }
}

void Copy(unsigned char* to, const Bytes& from)
{
    std::memcpy(to, from.data(), from.size());
}

void EncodeOpenSsl(benchmark::State& state)
{
    Peer(state, Plain(), Text().size(),
         [](unsigned char* to, const Bytes& from) { EVP_EncodeBlock(to, from.data(), static_cast<int>(from.size())); });
}
BENCHMARK(EncodeOpenSsl)->Name("Base64/openssl/encode");

void DecodeOpenSsl(benchmark::State& state)
{
    Peer(state, Text(), Text().size(), [](unsigned char* to, const Bytes& from) {
        EVP_DecodeBlock(to, from.data(), static_cast<int>(from.size() - 1));
    });
}
BENCHMARK(DecodeOpenSsl)->Name("Base64/openssl/decode");

void EncodeCopy(benchmark::State& state)
{
    Peer(state, Plain(), Plain().size(), Copy);
}
BENCHMARK(EncodeCopy)->Name("Base64/memcpy/encode");

void DecodeCopy(benchmark::State& state)
{
    Peer(state, Text(), Text().size(), Copy);
}
BENCHMARK(DecodeCopy)->Name("Base64/memcpy/decode");

}  // namespace
