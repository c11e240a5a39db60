// SPDX-License-Identifier: MIT
// Random operations on ordered lists agree with a model.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kelo_utils/list.h"
#include "tests/support/list_threads.hpp"
#include "tests/support/ordered_list_probe.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using kelo::tests::consume;
using kelo::tests::expect_sound;
using kelo::tests::kAllParcels;
using kelo::tests::make_parcels;
using kelo::tests::OrderedLinks;

constexpr int kOperations = kelo::tests::kSanitized ? 25000 : 125000;

int is_param(ordered_list_link_type* element, const void* param) {
  return static_cast<int>(element == param);
}

using Model =
    std::multimap<std::uint32_t, ordered_list_link_type*, std::function<bool(std::uint32_t, std::uint32_t)>>;

struct Order {
  std::int32_t direction;
  std::int32_t placement;
};

Model empty_model(Order order) {
  return order.direction == ORDERED_LIST_ASCENDING ? Model(std::less<>()) : Model(std::greater<>());
}

OrderedLinks links_of(const Model& model) {
  OrderedLinks links;
  for (const auto& [weight, link] : model) links.push_back(link);
  return links;
}

// Two lists of one order, each beside a map that must hold the same, and the links that are in neither.
class Pair {
 public:
  Pair(Order order, unsigned seed)
      : order_(order), random_(seed), models_{empty_model(order), empty_model(order)} {
    for (ordered_list_link_type& link : links_) spare_.push_back(&link);
    for (ordered_list_type& list : lists_) ordered_list_init(&list, order.direction, order.placement);
  }
  ~Pair() {
    for (ordered_list_type& list : lists_) ordered_list_destroy(&list);
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  void step() {
    const std::size_t which = below(2);
    ordered_list_type& list = lists_[which];
    Model& model = models_[which];
    switch (below(12)) {
      case 0:
      case 1:
      case 2:
      case 3:
        push(list, model);
        break;
      case 4:
        push_beside(list, model);
        break;
      case 5:
      case 6:
        pop_from_an_end(list, model);
        break;
      case 7:
        pop_item(list, model);
        break;
      case 8:
        look(list, model);
        break;
      case 9:
        search(list, model);
        break;
      case 10:
        if (below(4) == 0) split();
        break;
      default:
        EXPECT_EQ(model.size(), ordered_list_size(&list));
    }
    for (std::size_t i = 0; i < lists_.size(); ++i) expect_sound(lists_[i], links_of(models_[i]));
  }

 private:
  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }

  Model::iterator any(Model& model) {
    return std::next(model.begin(), static_cast<std::ptrdiff_t>(below(model.size())));
  }

  ordered_list_link_type* take_spare() {
    const std::size_t place = below(spare_.size());
    std::swap(spare_[place], spare_.back());
    ordered_list_link_type* const link = spare_.back();
    spare_.pop_back();
    return link;
  }

  // Few weights, so that most have equals, and those at the ends of the range.
  std::uint32_t any_weight() {
    constexpr std::array<std::uint32_t, 7> kWeights = {0,           1,           2,         0x7fffffffU,
                                                       0x80000000U, 0xfffffffeU, UINT32_MAX};
    return kWeights[below(kWeights.size())];
  }

  void push(ordered_list_type& list, Model& model) {
    if (spare_.empty()) return;
    ordered_list_link_type* const link = take_spare();
    const std::uint32_t weight = any_weight();
    ordered_list_push(&list, link, weight);
    EXPECT_EQ(weight, link->weight);
    const bool before = order_.placement == ORDERED_LIST_BEFORE_EQUALS;
    model.emplace_hint(before ? model.lower_bound(weight) : model.upper_bound(weight), weight, link);
  }

  void push_beside(ordered_list_type& list, Model& model) {
    if (spare_.empty() || model.empty()) return;
    ordered_list_link_type* const link = take_spare();
    const auto beside = any(model);
    link->weight = beside->first;
    if (below(2) == 0) {
      ordered_list_push_before(&list, link, beside->second);
      model.emplace_hint(beside, link->weight, link);
    } else {
      ordered_list_push_after(&list, link, beside->second);
      model.emplace_hint(std::next(beside), link->weight, link);
    }
  }

  void pop_from_an_end(ordered_list_type& list, Model& model) {
    const bool front = below(2) == 0;
    ordered_list_link_type* const link = front ? ordered_list_pop_front(&list) : ordered_list_pop_back(&list);
    if (model.empty()) {
      EXPECT_EQ(link, nullptr);
      return;
    }
    const auto end = front ? model.begin() : std::prev(model.end());
    EXPECT_EQ(end->second, link);
    spare_.push_back(end->second);
    model.erase(end);
  }

  void pop_item(ordered_list_type& list, Model& model) {
    if (model.empty()) return;
    const auto item = any(model);
    ordered_list_pop_item(&list, item->second);
    spare_.push_back(item->second);
    model.erase(item);
  }

  void look(ordered_list_type& list, Model& model) {
    EXPECT_EQ(model.empty() ? nullptr : model.begin()->second, ordered_list_peek_front(&list));
    EXPECT_EQ(model.empty() ? nullptr : model.rbegin()->second, ordered_list_peek_back(&list));
    if (model.empty()) return;
    const auto item = any(model);
    EXPECT_EQ(std::next(item) == model.end() ? nullptr : std::next(item)->second,
              ordered_list_peek_next(&list, item->second));
    EXPECT_EQ(item == model.begin() ? nullptr : std::prev(item)->second,
              ordered_list_peek_prev(&list, item->second));
  }

  void search(ordered_list_type& list, Model& model) {
    for (ordered_list_link_type* const absent : spare_)
      EXPECT_EQ(ordered_list_linear_search(&list, is_param, absent), nullptr);
    if (model.empty()) return;
    ordered_list_link_type* const wanted = any(model)->second;
    EXPECT_EQ(ordered_list_linear_search(&list, is_param, wanted), wanted);
  }

  void split() {
    auto& [model, destination] = models_;
    if (model.empty()) return;
    const auto first = any(model);
    ordered_list_split(&lists_[0], first->second, &lists_[1]);
    for (const auto& [weight, link] : destination) spare_.push_back(link);
    destination.clear();
    for (auto moved = first; moved != model.end(); ++moved)
      destination.emplace_hint(destination.end(), *moved);
    model.erase(first, model.end());
  }

  Order order_;
  std::mt19937 random_;
  std::array<ordered_list_link_type, 32> links_ = {};
  OrderedLinks spare_;
  std::array<ordered_list_type, 2> lists_ = {};
  std::array<Model, 2> models_;
};

class OrderedListModel : public testing::TestWithParam<Order> {};

TEST_P(OrderedListModel, AgreesWithAMultimap) {
  Pair pair(GetParam(), 20261121);
  for (int i = 0; i < kOperations && !testing::Test::HasFailure(); ++i) pair.step();
}

INSTANTIATE_TEST_SUITE_P(AllOrders, OrderedListModel,
                         testing::Values(Order{1, 4096}, Order{1, 8192}, Order{2, 4096}, Order{2, 8192}),
                         [](const testing::TestParamInfo<Order>& order) {
                           return std::to_string(order.param.direction | order.param.placement);
                         });

TEST(OrderedListThreads, EveryParcelArrivesOnceAndInOrder) {
  auto parcels = make_parcels<ordered_list_link_type>();
  ordered_list_type list;
  ordered_list_init(&list, ORDERED_LIST_ASCENDING, ORDERED_LIST_BEHIND_EQUALS);
  std::atomic<int> taken = 0;
  std::vector<std::thread> threads;
  for (auto& own : parcels)
    threads.emplace_back([&list, &own] {
      for (auto& parcel : own)
        ordered_list_push(&list, &parcel.link, static_cast<std::uint32_t>(parcel.number) / 100);
    });
  for (int consumer = 0; consumer < 2; ++consumer)
    threads.emplace_back([&] { consume([&] { return ordered_list_pop_front(&list); }, taken); });
  threads.emplace_back([&] {
    while (taken < kAllParcels) {
      EXPECT_LE(ordered_list_size(&list), static_cast<unsigned>(kAllParcels));
      ordered_list_peek_front(&list);
      ordered_list_peek_back(&list);
      EXPECT_EQ(ordered_list_linear_search(&list, is_param, nullptr), nullptr);
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(taken, kAllParcels);
  expect_sound(list, {});
  ordered_list_destroy(&list);
}

TEST(OrderedListThreads, ElementsOfSeveralThreadsAreSorted) {
  constexpr std::size_t kThreads = 4;
  std::array<std::array<ordered_list_link_type, 300>, kThreads> links = {};
  ordered_list_type list = {};
  std::vector<std::thread> threads;
  for (std::size_t own = 0; own < kThreads; ++own)
    threads.emplace_back([&, own] {
      std::minstd_rand engine(static_cast<unsigned>(own) + 1);
      const auto random = [&] { return static_cast<std::uint32_t>(engine()); };
      for (ordered_list_link_type& link : links[own]) {
        ordered_list_push(&list, &link, random() % 1000);
        if (random() % 4 == 0) {
          ordered_list_pop_item(&list, &link);
          ordered_list_push(&list, &link, random() % 1000);
        }
      }
    });
  for (std::thread& thread : threads) thread.join();
  const OrderedLinks sorted = kelo::tests::chain(list.front, 2000);
  EXPECT_EQ(sorted.size(), 1200U);
  for (std::size_t i = 1; i < sorted.size(); ++i) EXPECT_LE(sorted[i - 1]->weight, sorted[i]->weight);
  expect_sound(list, sorted);
  ordered_list_destroy(&list);
}

TEST(OrderedListThreads, RaceForTheFirstUseLosesNothing) {
  kelo::tests::race_for_the_first_use<ordered_list_type, ordered_list_link_type>(
      [](ordered_list_type* list, ordered_list_link_type* link) { ordered_list_push(list, link, 1); },
      ordered_list_destroy);
}

}  // namespace
