// The bookmark exports: result codes and their order, streams, identity,
// times and metadata values.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>

#include "bookmarks/bookmark_support.h"
#include "support/temp_dir.h"
#include "support/test_data.h"
#include "util/alloc.h"
#include "writer/programme_view.h"

namespace tmx::test {
namespace {

const std::string kPid = "urn:book:0001";

std::vector<std::uint32_t> Times(TMXFile* f) {
  std::uint32_t n = 0;
  EXPECT_EQ(TMXGetBookmarkCount(f, &n), TMX_OK);
  std::vector<std::uint32_t> times(n);
  for (std::uint32_t i = 0; i < n; ++i) EXPECT_EQ(TMXGetBookmarkTimeStamp(f, i, &times[i]), 0);
  return times;
}

std::int32_t Add(TMXFile* f, std::uint32_t ms, std::uint32_t* index = nullptr) {
  std::uint32_t i = 0;
  const std::int32_t rc = TMXAddBookmark(f, ms, &i);
  if (index) *index = i;
  return rc;
}

// A list for `pid`, as the bytes of a position file.
ByteVec ListFor(const std::string& pid) {
  Session s(ProgrammeBytes(pid));
  EXPECT_EQ(TMXInitBookmarkList(s.f(), s.position().stream()), TMX_OK);
  s.Close();
  return s.bytes();
}

// Every export that needs a list, with an index of 7 and null pointers.
std::vector<std::function<std::int32_t(TMXFile*)>> NeedAList() {
  return {
      [](TMXFile* f) { return TMXGetBookmarkListLocale(f, nullptr); },
      [](TMXFile* f) { return TMXGetBookmarkCount(f, nullptr); },
      [](TMXFile* f) { return TMXGetBookmarkTimeStamp(f, 7, nullptr); },
      [](TMXFile* f) { return TMXSeekToBookmark(f, 7); },
      [](TMXFile* f) { return TMXAddBookmark(f, 0, nullptr); },
      [](TMXFile* f) { return TMXDeleteBookmark(f, 7); },
      [](TMXFile* f) { return TMXGetBookmarkListInfo(f, kKeyTitle, 0, nullptr); },
      [](TMXFile* f) { return TMXGetBookmarkListMetadata(f, kKeyTitle, nullptr, 0); },
      [](TMXFile* f) { return TMXAddBookmarkListMetadata(f, kKeyTitle, nullptr, 0); },
      [](TMXFile* f) { return TMXDeleteBookmarkListMetadata(f, kKeyTitle); },
      [](TMXFile* f) { return TMXGetBookmarkInfo(f, 7, kKeyTitle, 0, nullptr); },
      [](TMXFile* f) { return TMXGetBookmarkMetadata(f, 7, kKeyTitle, nullptr, 0); },
      [](TMXFile* f) { return TMXAddBookmarkMetadata(f, 7, kKeyTitle, nullptr, 0); },
      [](TMXFile* f) { return TMXDeleteBookmarkMetadata(f, 7, kKeyTitle); },
  };
}

TEST(BookmarkArguments, FileThenListThenEachFunctionsOwnOrder) {
  MemoryStream m;
  EXPECT_EQ(TMXSetBookmarkBufferSize(nullptr, 1024), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXInitBookmarkList(nullptr, m.stream()), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXOpenBookmarkList(nullptr, m.stream()), TMX_ERR_HANDLE);
  EXPECT_EQ(TMXCloseBookmarkList(nullptr), TMX_ERR_HANDLE);
  Session s(ProgrammeBytes(kPid));
  TMXFile* f = s.f();
  for (const auto& call : NeedAList()) {
    EXPECT_EQ(call(nullptr), TMX_ERR_HANDLE);
    EXPECT_EQ(call(f), TMX_ERR_NO_BOOKMARK_LIST);
  }
  ASSERT_EQ(TMXInitBookmarkList(f, s.position().stream()), TMX_OK);
  const std::int32_t open[] = {-18, -18, -18, -17, -18, -17, -18,
                               -18, -18, -25, -18, -18, -17, -17};
  const std::int32_t readOnly[] = {-18, -18, -18, -17, -18, -37, -18,
                                   -18, -37, -37, -18, -18, -37, -37};
  for (std::size_t i = 0; i < NeedAList().size(); ++i) EXPECT_EQ(NeedAList()[i](f), open[i]) << i;
  f->bookmarkListFlags = 0;
  for (std::size_t i = 0; i < NeedAList().size(); ++i)
    EXPECT_EQ(NeedAList()[i](f), readOnly[i]) << i;
  f->bookmarkListFlags = 1;
  ASSERT_EQ(Add(f, 1000), TMX_OK);
  EXPECT_EQ(TMXAddBookmarkMetadata(f, 0, kKeyTitle, nullptr, 0), TMX_ERR_ARGUMENT);
  EXPECT_EQ(TMXSetBookmarkBufferSize(f, 63), TMX_ERR_ARGUMENT);
  EXPECT_EQ(f->bookmarkBufferSize, 1024u);
  EXPECT_EQ(TMXSetBookmarkBufferSize(f, 64), TMX_OK);
}

TEST(BookmarkStreams, RefusedStreamsProgrammesAndLists) {
  Session s(ProgrammeBytes(kPid));
  TMXFile* f = s.f();
  EXPECT_EQ(TMXOpenBookmarkList(f, nullptr), TMX_ERR_STREAM_OPS);
  EXPECT_EQ(TMXInitBookmarkList(f, nullptr), TMX_ERR_STREAM_OPS);
  EXPECT_EQ(TMXInitBookmarkList(f, s.programme().stream()), TMX_ERR_STREAM_OPS);
  MemoryStream noRead(ListFor(kPid)), noOpen(ListFor(kPid)), noCreate, empty;
  noRead.ops().Read = nullptr;
  noOpen.ops().Open = nullptr;
  noCreate.ops().Create = nullptr;
  EXPECT_EQ(TMXOpenBookmarkList(f, noRead.stream()), TMX_ERR_STREAM_OPS);
  EXPECT_EQ(TMXOpenBookmarkList(f, noOpen.stream()), TMX_ERR_FILE);
  EXPECT_EQ(TMXInitBookmarkList(f, noCreate.stream()), TMX_ERR_FILE);
  EXPECT_EQ(TMXOpenBookmarkList(f, empty.stream()), TMX_ERR_NOT_FOUND);
  const ByteVec noBlst = Atom("bmet", Concat({Be32(1), Atom("free", {})}));
  MemoryStream bare(Concat({ByteVec(16), Box("moov", {Box("udta", {noBlst})})}));
  EXPECT_EQ(TMXOpenBookmarkList(f, bare.stream()), TMX_ERR_NOT_FOUND);

  // A programme without "@pid" cannot have a list.
  Session anonymous(ProgrammeBytes(""));
  MemoryStream mine(ListFor(kPid));
  EXPECT_EQ(TMXOpenBookmarkList(anonymous.f(), mine.stream()), TMX_ERR_UNSUPPORTED);
  EXPECT_EQ(TMXInitBookmarkList(anonymous.f(), anonymous.position().stream()), TMX_ERR_UNSUPPORTED);
  EXPECT_TRUE(anonymous.bytes().empty());

  // Lists of other programmes, even of one whose "@pid" starts alike, are
  // refused; the stream is closed and no list stays open.
  for (const char* other : {"urn:book:0002", "urn:book:000", "urn:book:00011"}) {
    MemoryStream theirs(ListFor(other));
    EXPECT_EQ(TMXOpenBookmarkList(f, theirs.stream()), TMX_ERR_FOREIGN_LIST) << other;
    EXPECT_EQ(theirs.closes(), 1);
    EXPECT_EQ(TMXCloseBookmarkList(f), TMX_OK);
    EXPECT_EQ(theirs.closes(), 1);
  }
  // A stored value without a zero byte is not compared; no "@pid" item at
  // all is another programme's list.
  const ByteVec odd = Atom("prID", Atom("data", Concat({Be32(1), Be32(0), ByteVec(40, 'Q')})));
  for (const ByteVec& items : {odd, ByteVec{}}) {
    const ByteVec bmet =
        Atom("bmet", Concat({Be32(1), Atom("blst", Concat({Be32(0), items})), Atom("free", {})}));
    MemoryStream list(Concat({ByteVec(16), Box("moov", {Box("udta", {bmet})})}));
    EXPECT_EQ(TMXOpenBookmarkList(f, list.stream()), items.empty() ? TMX_ERR_FOREIGN_LIST : TMX_OK);
    EXPECT_EQ(TMXCloseBookmarkList(f), TMX_OK);
  }
}

// A caller's stream sees the calls any new list makes: the list kept in it
// is closed, the position record read, then Create, Close, and Open again.
TEST(BookmarkStreams, CallersStreamsSeeCloseCreateCloseOpen) {
  MemoryStream list;  // outlives the file, which closes it
  const ByteVec record = {0, 0, 0, 2, 0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0x10, 0, 0, 0, 0, 0};
  Session s(ProgrammeBytes(kPid), record);
  TMXFile* f = s.f();
  MemoryStream& position = s.position();
  ASSERT_EQ(TMXInitBookmarkList(f, list.stream()), TMX_OK);
  EXPECT_EQ(list.take_calls(), "create close");
  EXPECT_EQ(TMXGetBookmarkCount(f, nullptr), TMX_ERR_NO_BOOKMARK_LIST);
  ASSERT_EQ(TMXOpenBookmarkList(f, list.stream()), TMX_OK);
  ASSERT_EQ(Add(f, 4000), TMX_OK);
  ASSERT_EQ(TMXOpenBookmarkList(f, list.stream()), TMX_OK);
  EXPECT_EQ(list.take_calls(), "open0 close open0");
  EXPECT_EQ(Times(f), std::vector<std::uint32_t>{4000});
  ASSERT_EQ(TMXInitBookmarkList(f, list.stream()), TMX_OK);  // replaced and opened
  EXPECT_EQ(list.take_calls(), "close create close open0");
  EXPECT_EQ(Times(f), std::vector<std::uint32_t>{});

  ASSERT_EQ(TMXInitBookmarkList(f, position.stream()), TMX_OK);  // closes the other
  EXPECT_EQ(list.take_calls(), "close");
  EXPECT_EQ(position.take_calls(), "open1 close create close open1");
  EXPECT_EQ(ByteVec(s.bytes().begin(), s.bytes().begin() + 16), record);
  ASSERT_EQ(Add(f, 2500), TMX_OK);
  ASSERT_EQ(TMXInitBookmarkList(f, position.stream()), TMX_OK);
  EXPECT_EQ(position.take_calls(), "close create close open1");
  ASSERT_EQ(Add(f, 2500), TMX_OK);
  ASSERT_EQ(TMXCloseBookmarkList(f), TMX_OK);
  EXPECT_EQ(position.take_calls(), "");  // the file closes the position stream
  ASSERT_EQ(TMXOpenBookmarkList(f, list.stream()), TMX_OK);
  const std::int64_t live = tmx::testing::LiveAllocations();
  s.Close();
  EXPECT_LT(tmx::testing::LiveAllocations(), live);
  EXPECT_EQ(list.take_calls(), "open0 close");
  EXPECT_EQ(position.take_calls(), "close");
  EXPECT_EQ(ParseList(s.bytes()).bookmarks.at(0).time, 2500u);
  EXPECT_EQ(s.programme().data(), ProgrammeBytes(kPid));
}

// The built-in file streams free themselves in Close, so the list code
// never closes and reopens one that is open: replacing and reopening lists
// in them must not touch a freed stream (the sanitizer build would see it).
TEST(BookmarkStreams, BuiltInFileStreamsStayOpenWhileTheirListIsReplaced) {
  TempDir dir;
  const ByteVec& programme = ProgrammeBytes(kPid);
  const std::wstring path =
      dir.Write("book.tmx", std::string(programme.begin(), programme.end())).wstring();
  TMXFile* f = nullptr;
  ASSERT_EQ(TMXOpenFileWinW(&f, path.c_str()), TMX_OK);
  ASSERT_EQ(TMXInitBookmarkList(f, f->positionStream), TMX_OK);
  ASSERT_EQ(Add(f, 3000), TMX_OK);
  ASSERT_EQ(TMXOpenBookmarkList(f, f->positionStream), TMX_OK);
  EXPECT_EQ(Times(f), std::vector<std::uint32_t>{3000});
  ASSERT_EQ(TMXInitBookmarkList(f, f->positionStream), TMX_OK);
  EXPECT_EQ(Times(f), std::vector<std::uint32_t>{});

  // A separate built-in stream is freed by the Close that ends its creation;
  // the list is then opened through a new one, which the file frees.
  const std::wstring other = (dir.path() / "other.bmk").wstring();
  auto fileStream = [&] {
    auto* fs = static_cast<TMXFileStream*>(std::calloc(1, sizeof(TMXFileStream)));
    std::copy(other.begin(), other.end(), fs->path);
    return TMXInitIOStream(reinterpret_cast<TMXStream*>(fs), nullptr);
  };
  ASSERT_EQ(TMXInitBookmarkList(f, fileStream()), TMX_OK);
  TMXStream* s = fileStream();
  ASSERT_EQ(TMXOpenBookmarkList(f, s), TMX_OK);
  ASSERT_EQ(TMXOpenBookmarkList(f, s), TMX_OK);
  EXPECT_EQ(Times(f), std::vector<std::uint32_t>{});
  EXPECT_EQ(TMXCloseFile(f), TMX_OK);  // closes and frees the list's stream
  EXPECT_TRUE(ParseList(ReadFileBytes(dir.path() / "book.pos")).bookmarks.empty());
}

// A list kept in the programme's own "udta" (behind its last atom).
ByteVec ProgrammeWithList(const std::string& pid) {
  ByteVec b = ProgrammeBytes(pid);
  const writer::test::ProgrammeView view(b);
  const std::uint32_t moov = view.Find("moov").pos, udta = view.Find("moov/udta").pos;
  EXPECT_EQ(view.Find("moov/udta").end(), b.size());
  const ByteVec pidItem = Atom("prID", Atom("data", Concat({Be32(1), Be32(0), V(pid + '\0')})));
  const ByteVec bmet = Atom("bmet", Concat({Be32(1), Atom("blst", Concat({Be32(0), pidItem})),
                                            Atom("bmrk", Be32(1234)), Atom("free", {})}));
  for (std::uint32_t at : {moov, udta}) Put32(b, at, Be32At(b, at) + std::uint32_t(bmet.size()));
  b.insert(b.end(), bmet.begin(), bmet.end());
  return b;
}

TEST(BookmarkStreams, AListInTheProgrammeIsReadOnlyAndLeavesItsReaderInPlace) {
  const ByteVec programme = ProgrammeWithList(kPid);
  Session s(programme);
  TMXStream* own = s.programme().stream();
  ASSERT_EQ(own->ops->Seek(own, 4321), TMX_OK);
  ASSERT_EQ(TMXOpenBookmarkList(s.f(), own), TMX_OK);
  EXPECT_EQ(Times(s.f()), std::vector<std::uint32_t>{1234});
  std::uint32_t size = 0;
  EXPECT_EQ(TMXGetBookmarkListInfo(s.f(), FourCC("@pid"), 0, &size), TMX_OK);
  EXPECT_EQ(size, kPid.size() + 1);
  EXPECT_EQ(Add(s.f(), 5000), TMX_ERR_READ_ONLY_LIST);
  EXPECT_EQ(TMXDeleteBookmark(s.f(), 0), TMX_ERR_READ_ONLY_LIST);
  EXPECT_EQ(own->ops->Tell(own), 4321u);
  s.Close();
  EXPECT_EQ(s.programme().data(), programme);
  EXPECT_EQ(s.programme().closes(), 1);
}

// The order of bookmarks and the one-sided second around each are the random
// edits' model; here the end margin and the offset of reported times.
TEST(BookmarkTimes, EndMarginAndOffset) {
  Session s(ProgrammeBytes(kPid));
  TMXFile* f = s.f();
  ASSERT_EQ(TMXInitBookmarkList(f, s.position().stream()), TMX_OK);
  std::uint32_t index = 0, duration = 0, ms = 0;
  ASSERT_EQ(Add(f, 6000), TMX_OK);
  ASSERT_EQ(TMXGetDuration(f, &duration), TMX_OK);
  f->bookmarkEndMargin = 2000;
  f->bookmarkTimeOffset = 500;
  EXPECT_EQ(Add(f, 0xFFFFFFFF, &index), TMX_OK);
  EXPECT_EQ(TMXGetBookmarkTimeStamp(f, index, &ms), TMX_OK);
  EXPECT_EQ(ms, duration - 2000);
  EXPECT_EQ(ParseList(s.bytes()).bookmarks.back().time, duration - 2500);
  EXPECT_EQ(Add(f, 300, &index), TMX_OK);  // stored as 0, reported as the offset
  EXPECT_EQ(TMXGetBookmarkTimeStamp(f, index, &ms), TMX_OK);
  EXPECT_EQ(ms, 500u);
  f->bookmarkEndMargin = duration + 1;  // everything lands at the start
  EXPECT_EQ(Add(f, 40000), TMX_ERR_DUPLICATE_BOOKMARK);

  ASSERT_EQ(TMXSeekToBookmark(f, 1), TMX_OK);
  ASSERT_EQ(TMXGetPlaybackPosition(f, &ms), TMX_OK);
  EXPECT_TRUE(ms <= 6500 && ms > 6400) << ms;
  EXPECT_EQ(ParseList(s.bytes()).bookmarks.size(), 3u);  // behind the new record
  for (int i = 0; i < 3; ++i) ASSERT_EQ(TMXDeleteBookmark(f, 0), TMX_OK);
  EXPECT_EQ(Times(f), std::vector<std::uint32_t>{});
  EXPECT_TRUE(ParseList(s.bytes()).bookmarks.empty());
}

TEST(BookmarkMetadata, StoredAsGivenDeliveredInTheTextFormat) {
  Session s(ProgrammeBytes(kPid));
  TMXFile* f = s.f();
  ASSERT_EQ(TMXInitBookmarkList(f, s.position().stream()), TMX_OK);
  std::uint8_t out[32];
  std::uint32_t size = 0;
  const auto text = [&] { return std::string(reinterpret_cast<char*>(out)); };
  ASSERT_EQ(TMXSetUnicodeFormat(f, 1), TMX_OK);  // UTF-8, stored as data type 1
  const ByteVec title = V("Caf\xC3\xA9 &#65;");
  ASSERT_EQ(TMXAddBookmarkListMetadata(f, kKeyTitle, title.data(), 11), TMX_OK);
  ASSERT_EQ(TMXGetBookmarkListInfo(f, kKeyTitle, 0x66720000, &size), TMX_OK);
  EXPECT_EQ(size, 11u);  // the stored size, whatever the format or locale
  ASSERT_EQ(TMXGetBookmarkListMetadata(f, kKeyTitle, out, sizeof out), TMX_OK);
  EXPECT_EQ(text(), "Caf\xC3\xA9 &#65;");
  ASSERT_EQ(TMXSetUnicodeFormat(f, 0), TMX_OK);
  ASSERT_EQ(TMXGetBookmarkListMetadata(f, kKeyTitle, out, 4), TMX_OK);
  EXPECT_EQ(text(), "Caf");
  ASSERT_EQ(TMXSetUnicodeFormat(f, 3), TMX_OK);
  ASSERT_EQ(TMXGetBookmarkListMetadata(f, kKeyTitle, out, sizeof out), TMX_OK);
  EXPECT_EQ(std::memcmp(out, u"Caf\u00E9 &#65;", 22), 0);
  ASSERT_EQ(TMXSetUnicodeFormat(f, 0), TMX_OK);  // single-byte, references decoded

  ASSERT_EQ(Add(f, 20000), TMX_OK);
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 0, kKeyNote, "A&#66;C", 7), TMX_OK);
  const ByteVec jpeg = {0xFF, 0xD8, 0x00, 0x10, 0x00, 0xFF, 0xD9};
  ASSERT_EQ(TMXAddBookmarkMetadata(f, 0, kKeyCover, jpeg.data(), 7), TMX_OK);
  ASSERT_EQ(TMXGetBookmarkMetadata(f, 0, kKeyNote, out, sizeof out), TMX_OK);
  EXPECT_EQ(text(), "AB;C");
  std::memset(out, 0xEE, sizeof out);
  EXPECT_EQ(TMXGetBookmarkMetadata(f, 0, kKeyCover, out, 6), TMX_ERR_BUFFER);
  ASSERT_EQ(TMXGetBookmarkMetadata(f, 0, kKeyCover, out, 7), TMX_OK);
  EXPECT_EQ(ByteVec(out, out + 8), Concat({jpeg, {0xEE}}));
  EXPECT_EQ(ParseList(s.bytes()).bookmarks.at(0).items.at(FourCC("covr")), jpeg);
  EXPECT_EQ(Be32At(s.bytes(), ParseList(s.bytes()).bookmarks[0].pos + 12 + 16), 0u);
}

}  // namespace
}  // namespace tmx::test
