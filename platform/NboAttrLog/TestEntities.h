// The entities that the attribute log's tests send: a shelf with books (an ordered collection), and
// books with pages (a hashed one). The shelf has an attribute of each kind of value.
#pragma once

#include <array>
#include <compare>
#include <string>

#include <Mox/Entity.h>
#include <Mox/Enumeration.h>
#include <Mox/HashMap.h>
#include <Mox/Name.h>
#include <Mox/OrderedMap.h>
#include <MoxBase/Text.h>

namespace Mox::NboAttrLog {

// A key of 32 bits, ordered by its number.
class Number {
 public:
  constexpr Number() = default;
  explicit constexpr Number(U32 value) : value_(value) {}
  constexpr U32 value() const { return value_; }
  friend constexpr auto operator<=>(Number, Number) = default;  // NOLINT(modernize-use-nullptr)

 private:
  U32 value_ = 0;
};
inline void appendText(std::string& out, Number key) { Mox::appendText(out, key.value()); }

enum Wood : U32 { pine = 0, oak = 4 };
constexpr const char* enumerationName(Wood) { return "Test::Wood"; }
constexpr auto enumerators(Wood) {
  return std::array{enumerator(pine, "pine"), enumerator(oak, "oak")};
}

class Page final : public Entity<Page> {
 public:
  static constexpr const char* entityTypeName = "Test::Page";
  class NotifieeConst : public NotifieeOf<Page> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onTorn() {}
  };

  explicit Page(Number number) : number_(number) {}
  std::string name() const { return {}; }
  bool torn() const { return torn_; }
  void tornIs(bool v) { set<&Page::torn_>(v); }

 private:
  friend class Entity<Page>;
  Number number_;
  bool torn_ = false;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Page::name}, Key{"number", &Page::number_},
      Attr{"torn", &Page::torn_, &Page::tornIs, &NotifieeConst::onTorn},  // 259
  };
};

class Book final : public Entity<Book> {
 public:
  static constexpr const char* entityTypeName = "Test::Book";
  using PageMap = HashMap<Number, Ptr<Page>>;
  class NotifieeConst : public NotifieeOf<Book> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onLoans() {}
    virtual void onPage(Number) {}
    virtual void onPageImmediate() {}
    virtual void onPage() {}
  };

  explicit Book(Number number) : number_(number) {}
  std::string name() const { return {}; }
  U32 loans() const { return loans_; }
  Ptr<Page> page(Number key) const { return member<&Book::page_>(key); }
  size_t pages() const { return page_.size(); }
  void loansIs(U32 v) { set<&Book::loans_>(v); }
  U32 loansInc(U32 by) { return inc<&Book::loans_>(by); }
  Ptr<Page> pageIs(U32 key) { return memberIs<&Book::page_>(Number(key)); }
  Ptr<Page> pageDel(U32 key) { return memberDel<&Book::page_>(Number(key)); }

 private:
  friend class Entity<Book>;
  Number number_;
  U32 loans_ = 0;
  PageMap page_;

 public:
  static constexpr AttrTable attributes{
      Constant{"name", &Book::name}, Key{"number", &Book::number_},
      Collection{"page", &Book::page_, &NotifieeConst::onPage, &NotifieeConst::onPageImmediate,
                 &NotifieeConst::onPage},  // 259
      Counter{"loans", &Book::loans_, &Book::loansIs, &Book::loansInc,
              &NotifieeConst::onLoans},  // 260
  };
};

class Shelf final : public Entity<Shelf> {
 public:
  static constexpr const char* entityTypeName = "Test::Shelf";
  using BookMap = OrderedMap<Number, Ptr<Book>>;
  class NotifieeConst : public NotifieeOf<Shelf> {
   public:
    using NotifieeOf::NotifieeOf;
    virtual void onLit() {}
    virtual void onVisits() {}
    virtual void onBook(Number) {}
    virtual void onBookImmediate() {}
    virtual void onBook() {}
    virtual void onTotal() {}
    virtual void onHeight() {}
    virtual void onLabel() {}
    virtual void onWood() {}
    virtual void onOwner() {}
    virtual void onPlace() {}
  };
  // What can be shown, and cannot be made of what is shown.
  struct Place {
    static constexpr const char* valueTypeName = "Test::Place";
    S32 row = 0;
    friend bool operator==(const Place&, const Place&) = default;
    friend S32 shownValue(const Place& place) { return place.row; }
  };

  explicit Shelf(Name name) : name_(name) {}
  Name name() const { return name_; }
  bool lit() const { return lit_; }
  U32 visits() const { return visits_; }
  U64 total() const { return total_; }
  double height() const { return height_; }
  const std::string& label() const { return label_; }
  Wood wood() const { return wood_; }
  Number owner() const { return owner_; }
  U32 twice() const { return 2 * visits_; }
  Ptr<Book> book(U32 key) const { return member<&Shelf::book_>(Number(key)); }
  size_t books() const { return book_.size(); }

  void litIs(bool v) { set<&Shelf::lit_>(v); }
  void visitsIs(U32 v) { set<&Shelf::visits_>(v); }
  U32 visitsInc(U32 by) { return inc<&Shelf::visits_>(by); }
  void totalIs(U64 v) { set<&Shelf::total_>(v); }
  void heightIs(double v) { set<&Shelf::height_>(v); }
  void labelIs(std::string v) { set<&Shelf::label_>(std::move(v)); }
  void woodIs(Wood v) { set<&Shelf::wood_>(v); }
  void ownerIs(Number v) { set<&Shelf::owner_>(v); }
  void placeIs(Place v) { set<&Shelf::place_>(v); }
  Ptr<Book> bookIs(U32 key) { return memberIs<&Shelf::book_>(Number(key)); }
  Ptr<Book> bookDel(U32 key) { return memberDel<&Shelf::book_>(Number(key)); }
  void bookNotify() { notifyCollection<&Shelf::book_>(); }

 private:
  friend class Entity<Shelf>;
  Name name_;
  bool lit_ = false;
  U32 visits_ = 0;
  BookMap book_;
  U64 total_ = 0;
  double height_ = 0.0;
  std::string label_;
  Wood wood_ = pine;
  Number owner_;
  Place place_;

 public:
  static constexpr AttrTable attributes{
      Key{"name", &Shelf::name_},
      Attr{"lit", &Shelf::lit_, &Shelf::litIs, &NotifieeConst::onLit},  // 258
      Counter{"visits", &Shelf::visits_, &Shelf::visitsIs, &Shelf::visitsInc,
              &NotifieeConst::onVisits},  // 259
      Collection{"book", &Shelf::book_, &NotifieeConst::onBook, &NotifieeConst::onBookImmediate,
                 &NotifieeConst::onBook},                                           // 260
      Attr{"total", &Shelf::total_, &Shelf::totalIs, &NotifieeConst::onTotal},      // 261
      Derived{"twice", &Shelf::twice},                                              // 262
      Attr{"height", &Shelf::height_, &Shelf::heightIs, &NotifieeConst::onHeight},  // 263
      Attr{"label", &Shelf::label_, &Shelf::labelIs, &NotifieeConst::onLabel},      // 264
      Attr{"wood", &Shelf::wood_, &Shelf::woodIs, &NotifieeConst::onWood},          // 265
      Attr{"owner", &Shelf::owner_, &Shelf::ownerIs, &NotifieeConst::onOwner},      // 266
      Attr{"place", &Shelf::place_, &Shelf::placeIs, &NotifieeConst::onPlace},      // 267
  };
};

}  // namespace Mox::NboAttrLog
