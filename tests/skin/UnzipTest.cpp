#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "skin/PythonProducer.h"
#include "skin/Unzip.h"

namespace Teko {
namespace {

using R = Unzip::ExtractResult;

class UnzipTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!testing::PythonProducer::IsAvailable()) GTEST_SKIP() << "python3 is not installed";
    }
};

// Streamed output makes zipfile set flag bit 3 and write sizes after the data. The last
// archive holds a thousand entries, one name twice (the first wins) and a comment that starts
// like an empty archive's end record.
TEST_F(UnzipTest, ExtractsEveryEntryOfArchivesFromZipfile) {
    auto produced = testing::PythonProducer::Run(R"(
rng = random.Random(216)
files = [('setting.ini', b'[skin]\nskin=index.html\n'),
         ('index.html', b'<html>' + b'<tr><td>$name</td><td>$size</td></tr>\n' * 500),
         ('img/logo.png', rng.randbytes(5000)), ('empty.txt', b''),
         ('스킨/한글.txt', '안녕하세요 '.encode() * 100), ('zeros.bin', bytes(1 << 20))]
class Unseekable:
    def __init__(self, buffer): self.buffer = buffer
    def write(self, data): return self.buffer.write(data)
    def flush(self): pass
for method, level, streamed in [(zipfile.ZIP_STORED, None, False), (zipfile.ZIP_DEFLATED, 1, False),
                                (zipfile.ZIP_DEFLATED, 9, False), (zipfile.ZIP_DEFLATED, 6, True),
                                (zipfile.ZIP_STORED, None, True)]:
    buffer = io.BytesIO()
    with zipfile.ZipFile(Unseekable(buffer) if streamed else buffer, 'w', method, compresslevel=level) as z:
        z.writestr(zipfile.ZipInfo('img/'), b'')
        for name, data in files: z.writestr(name, data)
    emit(buffer.getvalue())
for name, data in files: emit(name.encode()); emit(data)
buffer = io.BytesIO()
warnings.simplefilter('ignore')
with zipfile.ZipFile(buffer, 'w', zipfile.ZIP_DEFLATED) as z:
    z.writestr('twice.txt', b'first')
    for i in range(1000): z.writestr('%04d.txt' % i, str(i).encode() * (i % 50))
    z.writestr('twice.txt', b'second')
    z.comment = b'PK\x05\x06' + bytes(18) + b'a comment that starts like an empty archive'
emit(buffer.getvalue())
)");
    ASSERT_TRUE(produced.has_value());
    ASSERT_EQ(produced->size(), 5u + 2 * 6 + 1);
    std::vector<std::string> names{"img/"};
    for (size_t i = 5; i < 17; i += 2)
        names.push_back((*produced)[i]);
    for (size_t archive = 0; archive < 5; ++archive) {
        SCOPED_TRACE("archive " + std::to_string(archive));
        Unzip unzip;
        ASSERT_TRUE(unzip.Load((*produced)[archive].data(), (*produced)[archive].size()));
        EXPECT_EQ(unzip.EntryNames(), names);
        EXPECT_EQ(unzip.Extract("img/"), "");
        for (size_t i = 5; i < 17; i += 2) {
            std::optional<std::string> bytes = unzip.Extract((*produced)[i]);
            ASSERT_TRUE(bytes.has_value()) << (*produced)[i];
            EXPECT_TRUE(*bytes == (*produced)[i + 1]) << (*produced)[i];
        }
        std::string bytes;
        EXPECT_EQ(unzip.Extract("setting", bytes), R::kNotFound);
    }

    Unzip many;
    ASSERT_TRUE(many.Load(produced->back().data(), produced->back().size()));
    EXPECT_EQ(many.EntryCount(), 1002u);
    EXPECT_EQ(many.Extract("twice.txt"), "first");
    EXPECT_EQ(many.Extract("0000.txt"), "");
    EXPECT_EQ(many.Extract("0999.txt"), std::string(49 * 3, '9'));
}

// A small archive of a deflate, a stored and another deflate entry, and ways to damage it.
class Damage {
public:
    explicit Damage(std::string archive) : archive_(std::move(archive)) {}

    [[nodiscard]] const std::string& Archive() const { return archive_; }
    uint32_t Get32(size_t offset) const {
        uint32_t value = 0;
        std::memcpy(&value, archive_.data() + offset, 4);
        return value;
    }
    void Put16(size_t offset, uint16_t value) { std::memcpy(archive_.data() + offset, &value, 2); }
    void Put32(size_t offset, uint32_t value) { std::memcpy(archive_.data() + offset, &value, 4); }
    size_t Central(std::string_view name) const {
        size_t at = archive_.find("PK\1\2");
        while (at != std::string::npos && archive_.compare(at + 46, name.size(), name) != 0)
            at = archive_.find("PK\1\2", at + 1);
        EXPECT_NE(at, std::string::npos) << name;
        return at;
    }
    size_t Data(std::string_view name) const {
        size_t local = Get32(Central(name) + 42);
        return local + 30 + (Get32(local + 26) & 0xFFFF) + (Get32(local + 26) >> 16);
    }
    size_t End() const { return archive_.size() - 22; }

private:
    std::string archive_;
};

TEST_F(UnzipTest, RefusesDamagedAndHostileArchives) {
    auto produced = testing::PythonProducer::Run(R"(
rng = random.Random(3)
buffer = io.BytesIO()
with zipfile.ZipFile(buffer, 'w') as z:
    z.writestr('a.txt', b'<td>$name</td><td>$size</td>\n' * 70 + rng.randbytes(40), zipfile.ZIP_DEFLATED)
    z.writestr('b.bin', rng.randbytes(100), zipfile.ZIP_STORED)
    z.writestr('c.txt', b'#U("hello") $skin ' * 20, zipfile.ZIP_DEFLATED)
emit(buffer.getvalue())
)");
    ASSERT_TRUE(produced.has_value());
    constexpr uint32_t kRatio = Unzip::kMaxCompressionRatio;
    // Damage to one entry: that entry is refused, the untouched c.txt still extracts.
    const struct {
        const char* name;
        std::function<void(Damage&)> apply;
        R result;
        R alternative = result;
    } entry_cases[] = {
        {"entry of 4 GB", [](Damage& d) { d.Put32(d.Central("a.txt") + 24, 0xF0000000u); },
         R::kTooLarge},
        {"ZIP64 size marker", [](Damage& d) { d.Put32(d.Central("a.txt") + 24, 0xFFFFFFFFu); },
         R::kTooLarge},
        // Stored, so that only the cap, not the ratio, can refuse it.
        {"stored entry one byte above the size cap",
         [](Damage& d) { d.Put32(d.Central("b.bin") + 24, Unzip::kMaxEntrySize + 1); },
         R::kTooLarge},
        {"ratio beyond what deflate reaches",
         [](Damage& d) {
             d.Put32(d.Central("a.txt") + 24, d.Get32(d.Central("a.txt") + 20) * kRatio + 1);
         },
         R::kTooLarge},
        {"ratio deflate reaches, sizes still a lie",
         [](Damage& d) {
             d.Put32(d.Central("a.txt") + 24, d.Get32(d.Central("a.txt") + 20) * kRatio);
         },
         R::kCorrupt},
        {"stored sizes disagree",
         [](Damage& d) { d.Put32(d.Central("b.bin") + 24, d.Get32(d.Central("b.bin") + 20) + 1); },
         R::kCorrupt},
        {"method 12", [](Damage& d) { d.Put16(d.Central("a.txt") + 10, 12); }, R::kUnsupported},
        {"encrypted", [](Damage& d) { d.Put16(d.Central("a.txt") + 8, 1); }, R::kUnsupported},
        {"wrong CRC",
         [](Damage& d) { d.Put32(d.Central("a.txt") + 16, d.Get32(d.Central("a.txt") + 16) ^ 1); },
         R::kChecksumMismatch},
        {"bit flipped in stored data", [](Damage& d) { d.Put16(d.Data("b.bin") + 10, 0x5A5A); },
         R::kChecksumMismatch},
        {"bit flipped in deflate data",
         [](Damage& d) { d.Put16(d.Data("a.txt") + 20, d.Get32(d.Data("a.txt") + 20) ^ 0x10); },
         R::kCorrupt, R::kChecksumMismatch},
    };
    for (const auto& test : entry_cases) {
        SCOPED_TRACE(test.name);
        Damage damage(produced->at(0));
        test.apply(damage);
        Unzip unzip;
        ASSERT_TRUE(unzip.Load(damage.Archive().data(), damage.Archive().size()));
        std::string bytes;
        R a = unzip.Extract("a.txt", bytes);
        R b = unzip.Extract("b.bin", bytes);
        EXPECT_TRUE(a == test.result || a == test.alternative || b == test.result);
        EXPECT_TRUE(a == R::kOk || b == R::kOk);
        EXPECT_EQ(unzip.Extract("c.txt", bytes), R::kOk);
    }

    // Damage to the directory: the whole archive is refused.
    const std::pair<const char*, std::function<void(Damage&)>> archive_cases[] = {
        {"header offset past the end",
         [](Damage& d) { d.Put32(d.Central("a.txt") + 42, 0x7FFFFFFF); }},
        {"header offset into the central directory",
         [](Damage& d) { d.Put32(d.Central("a.txt") + 42, d.Central("a.txt")); }},
        {"local header signature", [](Damage& d) { d.Put32(d.Get32(d.Central("b.bin") + 42), 0); }},
        {"two entries sharing data",
         [](Damage& d) { d.Put32(d.Central("c.txt") + 42, d.Get32(d.Central("a.txt") + 42)); }},
        {"name past the directory", [](Damage& d) { d.Put16(d.Central("c.txt") + 28, 0xFFFF); }},
        {"more entries than records", [](Damage& d) { d.Put32(d.End() + 8, 0x00040004); }},
        {"directory past the end record", [](Damage& d) { d.Put32(d.End() + 16, d.End()); }},
        {"second disk", [](Damage& d) { d.Put16(d.End() + 4, 1); }},
    };
    for (const auto& [name, apply] : archive_cases) {
        SCOPED_TRACE(name);
        Damage damage(produced->at(0));
        apply(damage);
        Unzip unzip;
        EXPECT_FALSE(unzip.Load(damage.Archive().data(), damage.Archive().size()));
        EXPECT_EQ(unzip.EntryCount(), 0u);
    }
}

}  // namespace
}  // namespace Teko
