// Requests: from their caller through the queue to their handlers and back.
#include "testkit/FailingNew.h"
#include "testkit/RouteTest.h"

using Action = Route::Action;
using Type = Action::Type;

struct Teller : Probe {
  using Probe::Probe;
  int GetParameter(unsigned int id, std::vector<std::string>& params) override {
    return params = {std::to_string(told++)}, static_cast<int>(id);
  }
  long told = 0;
};

// Four callers with batches, whose answers must be there and consecutive when ExecuteActions returns.
// Red if actions run out of order, batches mix, or a caller wakes before its last action.
TEST_F(RouteTest, CarriesOutBatchesInOrderAndWhole) {
  Teller* teller = Add<Teller>(*route, ALONE, "a");
  const auto callMany = [&] {
    for (int round = 0; round < 50; ++round) {
      std::vector<std::vector<std::string>> answers(30);
      std::vector<Action> batch(30, Action{Type::GET_PARAMETER, {}});
      for (unsigned i = 0; i < 30; ++i) batch[i].getParameter = {teller, i, &answers[i], -20};
      route->ExecuteActions(batch.data(), batch.size());
      for (unsigned i = 0; i < 30; ++i) {
        ASSERT_EQ(batch[i].getParameter.ret, static_cast<int>(i));
        ASSERT_EQ(answers[i], std::vector{std::to_string(std::stol(answers[0].at(0)) + i)});
      }
    }
  };
  for (bool running : {false, true}) {
    if (running) route->Start();
    Log::Keep("");
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) callers.emplace_back(callMany);
    for (std::thread& caller : callers) caller.join();
  }
  EXPECT_EQ(teller->told, 2 * 4 * 50 * 30);
}

struct Interceptor : RouteImpl {
  using RouteImpl::RouteImpl;
  void ExecuteActions(Action* actions, std::size_t) override {
    seen += std::to_string(static_cast<int>(actions->type));
  }
  std::string seen;
};

// Red if an operation goes another way than through ExecuteActions, or answers what no handler wrote.
TEST_F(RouteTest, SendsAllItAsksForThroughExecuteActions) {
  Interceptor derived("RouteI", nullptr, "");
  Block* block = Add(*route, ALONE, "a");
  std::vector<std::string> texts;
  EXPECT_FALSE(derived.NewBlock("libprobe.so", true, true, {}) || Join(derived, block, block));
  const std::vector<int> answers{derived.Start(),
                                 derived.SetParameter(block, 1, {}),
                                 derived.GetParameter(block, 1, texts),
                                 derived.Reset(block),
                                 derived.Stop(),
                                 derived.Delete(block),
                                 derived.DeleteAll()};
  EXPECT_EQ(answers, std::vector<int>(7, -20));
  derived.SetDump("");
  EXPECT_EQ(derived.seen, "01234567810");
}

// Red if a bad argument reaches the queue, or a good one does not.
TEST_F(RouteTest, RefusesBadArgumentsBeforeTheQueue) {
  Probe *a = Add(*route, ALONE, "a"), *none = nullptr;
  a->linkResult = -5;
  Log::Keep("ED");
  Action action{Type::STOP, {}};
  route->ExecuteActions(nullptr, 3);
  route->ExecuteActions(&action, 0);
  EXPECT_FALSE(route->NewBlock(nullptr, true, true, {}) || Join(*route, none, none, 99, 99) ||
               Join(*route, a, none, 99, 99) || Join(*route, a, a, 32, 99) || Join(*route, a, a, 31, 32) ||
               Join(*route, a, a, 31, 31));
  EXPECT_EQ(Log::Take(), Lines("E ~so file name is nullptr|E ~Source block is nullptr|E ~Sink block is nullptr|"
                               "E ~Invalid source block output endpoint index 32|"
                               "E ~Invalid sink block input endpoint index 32|D ~Processing action 'NEW_LINK'|"
                               "E ~lnk_0: Failed to link to @a's O31"));
}

// Red if a type is named or dispatched otherwise, or a batch whose first block failed reads through a null pointer.
TEST_F(RouteTest, KnowsAllActionsAndRefusesNullBlocks) {
  Block *none = nullptr, *block = Add<Teller>(*route, ALONE, "a");
  std::vector<std::string> texts{"x"};
  std::vector<Action> batch;
  std::string expected;
  const auto add = [&](Type type, const std::string& name, const std::string& log) -> Action& {
    expected += (batch.empty() ? "" : "|") + ("D ~Processing action '" + name + "'|" + log);
    return batch.emplace_back(Action{type, {}});
  };
  const auto addLink = [&](Block** source, std::size_t out, Block** sink, std::size_t in, const char* log) {
    add(Type::NEW_LINK, "NEW_LINK", log).newLink = {1, SampleFormat::BYTE, 1, 1, source, out, sink, in, nullptr};
  };
  add(Type::NEW_BLOCK, "NEW_BLOCK", "D ~soFileName=no, first=0, last=1|D ~args[0]=x|E ~Invalid so file name")
      .newBlock = {"no", false, true, &texts, &none};
  addLink(&none, 0, &block, 0, "E ~source (null) doesn't exist");
  addLink(&block, 0, &none, 0, "E ~sink (null) doesn't exist");
  addLink(&block, 32, &block, 32, "E ~Invalid sourceBlkOutEpIdx 32");
  addLink(&block, 0, &block, 32, "E ~@a: Invalid sinkBlkInEpIdx 32");
  add(Type::SET_PARAMETER, "SET_PARAMETER", "E ~Block (null) doesn't exist").setParameter = {none, 1, &texts, 0};
  add(Type::GET_PARAMETER, "GET_PARAMETER", "E ~Block (null) doesn't exist").getParameter = {none, 1, &texts, 0};
  add(Type::RESET, "RESET", "E ~Block (null) doesn't exist").reset = {none, 0};
  add(Type::DELETE, "DELETE", "E ~No instance " + Pointer(&texts)).del = {&texts, 0};
  add(Type::SET_PARAMETER, "SET_PARAMETER", "I ~Setting parameter id 9 to @a|I ~@a: paramId=9, params.size()=1")
      .setParameter = {block, 9, &texts, -20};
  add(Type::GET_PARAMETER, "GET_PARAMETER", "I ~Getting parameter 8 from block @a").getParameter = {block, 8, &texts,
                                                                                                    -20};
  add(Type{11}, "?", "E ~Unknown action: ?");
  add(Type::START, "START", "I ~Started|OnStarted|I ~Status is RUNNING");
  add(Type::RESET, "RESET", "D ~@a: Reset").reset = {block, -20};
  add(Type::DELETE_ALL, "DELETE_ALL", "I ~@a: Deleted");
  add(Type::SET_DUMP, "SET_DUMP", "I ~Disabled dumping data");
  add(Type::EXIT, "EXIT", "OnExit");
  add(Type::STOP, "STOP", "I ~Stopping|I ~Stopped|OnStopped 0");  // takes the status back from EXIT
  Log::Keep("EWID");
  route->ExecuteActions(batch.data(), batch.size());
  EXPECT_EQ(Log::Take(), Lines(expected));
  EXPECT_TRUE(batch[5].setParameter.ret == -20 && batch[6].getParameter.ret == -20 && batch[7].reset.ret == -20);
  EXPECT_TRUE(batch[8].del.ret == -20 && batch[9].setParameter.ret == 0 && batch[10].getParameter.ret == 8);
}

// Each allocation of a batch fails once. Red if an action stays queued that points to a caller who has gone, a caller
// waits for ever, the process ends, or a block that nobody got stays.
TEST_F(RouteTest, RefusesWhatFindsNoMemory) {
  route.reset(), route = std::make_unique<RouteImpl>("RouteA", nullptr, "");
  Log::Keep("");
  const std::function<Block*(bool, bool)> make = [](bool first, bool last) { return new Probe(first, last, "a"); };
  const std::vector<std::string> args{std::to_string(reinterpret_cast<std::uintptr_t>(&make))};
  long untried = 0;
  for (long n = 0; untried == 0; ++n) {
    {
      Block *first = nullptr, *second = nullptr;
      std::vector<Action> batch(6, Action{Type::START, {}});
      batch[0] = batch[1] = {Type::NEW_BLOCK, {}};
      batch[0].newBlock = {"libprobe.so", true, false, &args, &first};
      batch[1].newBlock = {"libprobe.so", false, true, &args, &second};
      batch[2] = {Type::NEW_LINK, {}};
      batch[2].newLink = {1, SampleFormat::BYTE, 1, 1, &first, 0, &second, 0, nullptr};
      batch[4] = {Type::SET_DUMP, {}};
      batch[4].setDump = {"/nonexistent/folder/with/a/long/name/"};
      batch[5].type = Type::STOP;
      allocationsLeft = n;
      route->ExecuteActions(batch.data(), batch.size());
      untried = allocationsLeft.exchange(-1) + 1;
      EXPECT_EQ(route->Blocks_l().size(), static_cast<std::size_t>((first != nullptr) + (second != nullptr)));
      EXPECT_EQ(route->Links_l().size(), static_cast<std::size_t>(batch[2].newLink.link != nullptr));
    }
    EXPECT_EQ(route->Stop() + route->DeleteAll(), 0) << n;
  }
  allocationsLeft = 0;
  route.reset();  // ends without memory
  EXPECT_EQ(allocationsLeft.exchange(-1), 0);
}

// Red if the end of a route leaves out a step, or takes another order.
TEST_F(RouteTest, EndsWithStopDeleteAllAndExit) {
  Probe *src = Add(*route, FIRST, "src"), *out = Add(*route, LAST, "out");
  const std::string blocks = src < out ? "I ~@src: Deleted|I ~@out: Deleted|" : "I ~@out: Deleted|I ~@src: Deleted|";
  Join(*route, src, out);
  route->Start();
  Log::Take();
  route.reset();
  EXPECT_EQ(Log::Take(), Lines("I ~Stopping|I ~Stopped|OnStopped 0|I ~lnk_0: Deleted|" + blocks +
                               "OnExit|I ~Status is EXIT|I ~Deleted"));
}
