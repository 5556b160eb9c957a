#include "collector/store/postgresql/postgresql_rows.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace tarvex::collector {

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Digest digestOf(std::string_view text) {
    Digest digest{};
    if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("the SHA-256 of a text cannot be computed");
    return digest;
}

void lockParticipant(PostgresqlConnection& connection, const Digest& participant) {
    const std::string_view bytes(reinterpret_cast<const char*>(participant.data()), participant.size());
    connection.execute(statement("lock participant"), {fromNetworkOrder(bytes)});
}

std::vector<OtherRow> Rows<OtherSample>::of(std::span<const OtherSample> samples) {
    std::vector<OtherRow> rows;
    rows.reserve(samples.size());
    for (const OtherSample& sample : samples) {
        std::string text = sample.type;
        text.append(1, '\0').append(sample.values);  // which are JSON and hold no zero byte
        rows.push_back({.time = sample.time, .digest = digestOf(text), .sample = &sample});
    }
    std::ranges::sort(rows);
    return rows;
}

void Rows<OtherSample>::write(BinaryCopy& into, std::int64_t participant, const OtherRow& row) {
    into.beginRow(5);
    into.add(participant);
    into.add(row.time);
    into.add(std::string_view(reinterpret_cast<const char*>(row.digest.data()), row.digest.size()));
    into.add(storableText(row.sample->type));
    into.add(storableText(row.sample->values));
}

}  // namespace tarvex::collector
