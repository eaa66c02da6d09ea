// The line connection under the control protocol, over a real loopback socket pair.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <winsock2.h>
#include <ws2tcpip.h>

#include <memory>
#include <string>
#include <thread>

#include "line_connection.h"
#include "winsock_library.h"

namespace kestrun_headless {
namespace {

using ::testing::HasSubstr;

class LineConnectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(winsock_.ready());
    SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof(address);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    std::string error;
    client_ = LineConnection::Connect("127.0.0.1:" + std::to_string(ntohs(address.sin_port)),
                                      &error);
    ASSERT_TRUE(client_) << error;
    peer_ = accept(listener, nullptr, nullptr);
    closesocket(listener);
    ASSERT_NE(peer_, INVALID_SOCKET);
  }
  void TearDown() override {
    client_.reset();
    if (peer_ != INVALID_SOCKET) closesocket(peer_);
  }

  void PeerSends(const std::string& bytes) {
    ASSERT_EQ(send(peer_, bytes.data(), static_cast<int>(bytes.size()), 0),
              static_cast<int>(bytes.size()));
  }
  std::string PeerReceives(size_t count) {
    std::string bytes;
    char buffer[65536];
    while (bytes.size() < count) {
      const int got = recv(peer_, buffer, sizeof(buffer), 0);
      if (got <= 0) break;
      bytes.append(buffer, static_cast<size_t>(got));
    }
    return bytes;
  }

  WinsockLibrary winsock_;
  std::unique_ptr<LineConnection> client_;
  SOCKET peer_ = INVALID_SOCKET;
};

TEST_F(LineConnectionTest, LinesArriveWholeHoweverTheBytesAreSplit) {
  PeerSends("first\r\nsec");
  PeerSends("ond\n\nthi");
  std::string line;
  ASSERT_TRUE(client_->ReadLine(&line));
  EXPECT_EQ(line, "first");
  ASSERT_TRUE(client_->ReadLine(&line));
  EXPECT_EQ(line, "second");
  ASSERT_TRUE(client_->ReadLine(&line));
  EXPECT_EQ(line, "");
  PeerSends(std::string(300000, 'x') + "rd\n");
  ASSERT_TRUE(client_->ReadLine(&line));
  EXPECT_EQ(line.size(), 300005u);
  EXPECT_EQ(line.substr(0, 3), "thi");
}

TEST_F(LineConnectionTest, WrittenLinesEndWithANewLine) {
  const std::string big(200000, 'y');
  std::thread writer([&] {
    EXPECT_TRUE(client_->WriteLine("{\"a\":1}"));
    EXPECT_TRUE(client_->WriteLine(big));
  });
  const std::string received = PeerReceives(8 + big.size() + 1);
  writer.join();
  EXPECT_EQ(received, "{\"a\":1}\n" + big + "\n");
}

TEST_F(LineConnectionTest, ShutdownWakesAWaitingReader) {
  std::string line;
  bool read = true;
  std::thread reader([&] { read = client_->ReadLine(&line); });
  client_->Shutdown();
  reader.join();
  EXPECT_FALSE(read);
  EXPECT_FALSE(client_->WriteLine("late"));
}

TEST_F(LineConnectionTest, FinishingSendingLetsThePeerReadEverythingThenTheEnd) {
  ASSERT_TRUE(client_->WriteLine("last words"));
  client_->FinishSending();
  EXPECT_EQ(PeerReceives(100), "last words\n");  // then the end of the stream
  // The other direction still works until the peer closes it.
  PeerSends("reply\n");
  std::string line;
  ASSERT_TRUE(client_->ReadLine(&line));
  EXPECT_EQ(line, "reply");
  shutdown(peer_, SD_SEND);
  EXPECT_FALSE(client_->ReadLine(&line));
}

TEST(LineConnectionConnectTest, BadAddressesAreRefusedWithTheReason) {
  WinsockLibrary winsock;
  std::string error;
  EXPECT_FALSE(LineConnection::Connect("localhost", &error));
  EXPECT_THAT(error, HasSubstr("localhost"));
  EXPECT_FALSE(LineConnection::Connect("127.0.0.1:99999", &error));
  EXPECT_THAT(error, HasSubstr("port"));
  EXPECT_FALSE(LineConnection::Connect("300.1.1.1:80", &error));
  EXPECT_THAT(error, HasSubstr("address"));
}

}  // namespace
}  // namespace kestrun_headless
