#include "nodevik/util/udpserver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "tests/support/childprocess.h"
#include "tests/support/loopbacksocket.h"

namespace {

bool refuse_socket_options = false;
bool nothing_waits = false;
thread_local int last_transfer_flags = -1;

// Lets no further descriptor be created while it lives.
class NoNewDescriptors {
public:
    NoNewDescriptors() {
        getrlimit(RLIMIT_NOFILE, &usual_);
        const rlimit none{0, usual_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoNewDescriptors() { setrlimit(RLIMIT_NOFILE, &usual_); }
    NoNewDescriptors(const NoNewDescriptors&) = delete;
    NoNewDescriptors& operator=(const NoNewDescriptors&) = delete;

private:
    rlimit usual_{};
};

bool may_broadcast(int descriptor) {
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &value, &length) == 0 && value == 1;
}

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

std::string text_of(const sockaddr_in& address) {
    return std::string(inet_ntoa(address.sin_addr)) + ":" + std::to_string(ntohs(address.sin_port));
}

std::string after_start(const std::string& lines, const std::string& address) {
    return "UDPServer::startserver - Opening socket for IP " + address + "\n" + lines;
}

// What a signal handler saw; handlers get no more than the signal's number.
struct Notice {
    udpserver* endpoint = nullptr;
    volatile std::sig_atomic_t signal_number = 0;
    volatile std::sig_atomic_t received = 0;
    std::array<char, 16> room{};
};
Notice notice;

void receive_on_server(int signal_number) {
    const int count = notice.endpoint->server_receive(16, notice.room.data());
    if (count > 0) {
        notice.received = count;
        notice.signal_number = signal_number;
    }
}

void receive_on_client(int signal_number) {
    const int count = notice.endpoint->client_receive(16, notice.room.data());
    if (count > 0) {
        notice.received = count;
        notice.signal_number = signal_number;
    }
}

// Waits until a handler has taken a datagram, up to ten seconds.
bool wait_for_notice() {
    for (int i = 0; i < 1000 && notice.received == 0; ++i) {
        poll(nullptr, 0, 10);
    }
    return notice.received != 0;
}

// Waits until thread `thread` of this process waits in a system call, up to ten seconds.
void wait_until_asleep(pid_t thread) {
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    for (int i = 0; i < 1000; ++i) {
        std::ifstream stat(path);
        const std::string line{std::istreambuf_iterator<char>(stat), {}};
        if (line.find(") S ") != std::string::npos) {
            return;
        }
        poll(nullptr, 0, 10);
    }
}

class UdpServer : public testing::Test {
protected:
    void start() { ASSERT_EQ(endpoint.start_server(127, 0, 0, 1, 0, nullptr), 0); }
    void open() {
        ASSERT_EQ(endpoint.open(nullptr), 0);
        endpoint.set_client_destination_address(127, 0, 0, 1, far.port());
    }

    udpserver endpoint;
    LoopbackSocket far;
    std::array<char, 64> room{};
};

class UdpServerSignals : public UdpServer {
protected:
    void SetUp() override {
        notice.endpoint = &endpoint;
        notice.signal_number = 0;
        notice.received = 0;
    }
    void TearDown() override {
        std::signal(SIGUSR1, SIG_DFL);
        std::signal(SIGUSR2, SIG_DFL);
    }
};

}  // namespace

// Takes the place of the C library's setsockopt, so that its failure can be brought about.
extern "C" int setsockopt(int descriptor, int level, int option, const void* value,
                          socklen_t length) noexcept {
    if (refuse_socket_options) {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_setsockopt, descriptor, level, option, value, length));
}

// Take the places of the C library's sendto and recvfrom, so that their flags can be seen, and a queue that is
// empty after all be brought about.
extern "C" ssize_t sendto(int descriptor, const void* bytes, size_t size, int flags, const sockaddr* to,
                          socklen_t length) {
    last_transfer_flags = flags;
    return syscall(SYS_sendto, descriptor, bytes, size, flags, to, length);
}

extern "C" ssize_t recvfrom(int descriptor, void* bytes, size_t size, int flags, sockaddr* from,
                            socklen_t* length) {
    last_transfer_flags = flags;
    if (nothing_waits) {
        errno = EAGAIN;
        return -1;
    }
    return syscall(SYS_recvfrom, descriptor, bytes, size, flags, from, length);
}

TEST_F(UdpServer, HasNoSocketAtFirst) {
    EXPECT_EQ(endpoint.client_socket(), 0);
    EXPECT_EQ(endpoint.server_socket(), 0);
}

TEST_F(UdpServer, OpenPrintsItsLineAndReturnsZero) {
    const ChildResult result = run_in_child([] {
        udpserver server;
        std::printf("result %d\n", server.open(nullptr));
    });
    EXPECT_EQ(result.out, "UDPServer::open - Opening socket\nresult 0\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(UdpServer, OpenLeavesTheClientSocketUnboundUntilTheFirstSend) {
    open();
    EXPECT_EQ(local_port(endpoint.client_socket()), 0U);
    EXPECT_EQ(endpoint.client_send(1, room.data()), 1);
    EXPECT_NE(local_port(endpoint.client_socket()), 0U);
}

TEST_F(UdpServer, OpenWithoutHandlerInstallsNoSignal) {
    open();
    EXPECT_EQ(fcntl(endpoint.client_socket(), F_GETFL) & O_ASYNC, 0);
    EXPECT_EQ(fcntl(endpoint.client_socket(), F_GETSIG), 0);
}

TEST_F(UdpServer, BothSocketsMayBroadcast) {
    open();
    start();
    EXPECT_TRUE(may_broadcast(endpoint.client_socket()));
    EXPECT_TRUE(may_broadcast(endpoint.server_socket()));
}

TEST_F(UdpServer, ABroadcastAddressIsNotRefused) {
    open();
    start();
    endpoint.set_client_destination_address(127, 255, 255, 255, far.port());
    endpoint.set_server_destination_address(127, 255, 255, 255, far.port());
    EXPECT_EQ(endpoint.client_send(3, room.data()), 3);
    EXPECT_EQ(endpoint.server_send(3, room.data()), 3);
}

TEST_F(UdpServer, ABroadcastReachesAServerOnAnyAddress) {
    open();
    ASSERT_EQ(endpoint.start_server(0, nullptr), 0);
    endpoint.set_client_destination_address(127, 255, 255, 255, local_port(endpoint.server_socket()));
    room = {'a', 'l', 'l'};
    EXPECT_EQ(endpoint.client_send(3, room.data()), 3);
    room = {};
    ASSERT_TRUE(wait_readable(endpoint.server_socket()));
    EXPECT_EQ(endpoint.server_receive(64, room.data()), 3);
    EXPECT_STREQ(room.data(), "all");
}

TEST_F(UdpServer, FailedOpenReportsAndStillReturnsZero) {
    const ChildResult result = run_in_child([] {
        const NoNewDescriptors limit;
        udpserver server;
        const int opened = server.open(nullptr);
        std::printf("result %d, socket %d\n", opened, server.client_socket());
    });
    EXPECT_EQ(result.out, "UDPServer::open - Opening socket\nresult 0, socket -1\n");
    EXPECT_EQ(result.err,
              "open - socket(): Too many open files\n"
              "UDPServer::openbroadcast - setsockopt(): Bad file descriptor\n");
}

TEST_F(UdpServer, StartServerOnAPortBindsEveryAddress) {
    ASSERT_EQ(endpoint.start_server(0, nullptr), 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(endpoint.server_socket(), reinterpret_cast<sockaddr*>(&address), &length);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_ANY);
}

TEST_F(UdpServer, StartServerOnAnAddressBindsThatOne) {
    ASSERT_EQ(endpoint.start_server(127, 0, 0, 2, 0, nullptr), 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(endpoint.server_socket(), reinterpret_cast<sockaddr*>(&address), &length);
    EXPECT_STREQ(inet_ntoa(address.sin_addr), "127.0.0.2");
}

TEST_F(UdpServer, StartServerPrintsAddressAndPort) {
    unsigned port = 0;
    {
        const LoopbackSocket free_port;
        port = free_port.port();
    }
    const ChildResult any = run_in_child([port] {
        udpserver server;
        std::printf("result %d, ", server.start_server(port, nullptr));
        std::printf("bound to %u\n", local_port(server.server_socket()));
    });
    const std::string number = std::to_string(port);
    EXPECT_EQ(any.out, after_start("result 0, bound to " + number + "\n", "0.0.0.0:" + number));
    EXPECT_EQ(any.err, "");
    const ChildResult one = run_in_child([port] {
        udpserver server;
        std::printf("result %d\n", server.start_server(127, 0, 0, 1, port, nullptr));
    });
    EXPECT_EQ(one.out, after_start("result 0\n", "127.0.0.1:" + number));
}

TEST_F(UdpServer, StartServerWithoutHandlerInstallsNoSignal) {
    start();
    EXPECT_EQ(fcntl(endpoint.server_socket(), F_GETFL) & O_ASYNC, 0);
    EXPECT_EQ(fcntl(endpoint.server_socket(), F_GETSIG), 0);
}

TEST_F(UdpServer, StartServerOnATakenPortReportsTheBindAndFails) {
    const unsigned port = far.port();
    const ChildResult result = run_in_child([port] {
        udpserver server;
        std::printf("result %d\n", server.start_server(port, nullptr));
    });
    EXPECT_EQ(result.out, after_start("result -1\n", "0.0.0.0:" + std::to_string(port)));
    EXPECT_EQ(result.err, "startserver - bind(): Address already in use\n");
}

TEST_F(UdpServer, AFailedBindLeavesTheClosedNumberWhichTheDestructorClosesAgain) {
    const unsigned port = far.port();
    const ChildResult result = run_in_child([port] {
        int other = -1;
        {
            udpserver server;
            server.start_server(127, 0, 0, 1, port, nullptr);
            const bool closed = !is_open(server.server_socket());
            other = dup(STDOUT_FILENO);
            std::printf("closed %d, taken by another file %d\n", closed, other == server.server_socket());
        }
        std::printf("open after the destructor %d\n", is_open(other));
    });
    EXPECT_EQ(result.out, after_start("closed 1, taken by another file 1\nopen after the destructor 0\n",
                                      "127.0.0.1:" + std::to_string(port)));
}

TEST_F(UdpServer, StartServerWithoutSocketReportsAndFails) {
    const ChildResult result = run_in_child([] {
        const NoNewDescriptors limit;
        udpserver server;
        std::printf("result %d\n", server.start_server(127, 0, 0, 1, 5000, nullptr));
    });
    EXPECT_EQ(result.out, after_start("result -1\n", "127.0.0.1:5000"));
    EXPECT_EQ(result.err, "startserver - socket(): Too many open files\n");
}

TEST_F(UdpServer, ARefusedBroadcastOptionIsReportedAndTheServerStarts) {
    const ChildResult result = run_in_child([] {
        refuse_socket_options = true;
        udpserver server;
        std::printf("result %d\n", server.start_server(127, 0, 0, 1, 0, nullptr));
    });
    EXPECT_EQ(result.out, after_start("result 0\n", "127.0.0.1:0"));
    EXPECT_EQ(result.err, "setsockopt(): Operation not permitted\n");
}

TEST_F(UdpServer, TheDestructorClosesBothSockets) {
    int client = -1;
    int server = -1;
    {
        udpserver other;
        other.open(nullptr);
        other.start_server(127, 0, 0, 1, 0, nullptr);
        client = other.client_socket();
        server = other.server_socket();
        EXPECT_TRUE(is_open(client));
        EXPECT_TRUE(is_open(server));
    }
    EXPECT_FALSE(is_open(client));
    EXPECT_FALSE(is_open(server));
}

TEST_F(UdpServer, DescriptorZeroCountsAsNotOpenAndIsNotClosed) {
    const ChildResult result = run_in_child([] {
        ::close(STDIN_FILENO);
        {
            udpserver server;
            server.open(nullptr);
            std::printf("socket %d\n", server.client_socket());
        }
        std::printf("still open %d\n", is_open(0));
    });
    EXPECT_EQ(result.out, "UDPServer::open - Opening socket\nsocket 0\nstill open 1\n");
}

TEST_F(UdpServer, SettingADestinationPrintsIt) {
    const ChildResult result = run_in_child([] {
        udpserver server;
        server.set_client_destination_address(10, 1, 255, 3, 65535);
        server.set_server_destination_address(192, 168, 0, 1, 5000);
    });
    EXPECT_EQ(result.out,
              "Client Destination Address: 10.1.255.3:65535\n"
              "Server Destination Address: 192.168.0.1:5000\n");
}

TEST_F(UdpServer, ClientSendsToItsDestination) {
    open();
    std::string bytes("ab\0c", 4);
    EXPECT_EQ(endpoint.client_send(4, bytes.data()), 4);
    EXPECT_EQ(far.receive(), bytes);
    EXPECT_EQ(far.last_sender(), local_port(endpoint.client_socket()));
}

TEST_F(UdpServer, AOneOffAddressLeavesTheDestinationAsItIs) {
    open();
    LoopbackSocket other;
    std::string bytes = "once";
    EXPECT_EQ(endpoint.client_send(127, 0, 0, 1, other.port(), 4, bytes.data()), 4);
    EXPECT_EQ(other.receive(), "once");
    bytes = "home";
    EXPECT_EQ(endpoint.client_send(4, bytes.data()), 4);
    EXPECT_EQ(far.receive(), "home");
}

TEST_F(UdpServer, ServerSendsToItsOwnDestination) {
    open();
    start();
    LoopbackSocket other;
    endpoint.set_server_destination_address(127, 0, 0, 1, other.port());
    std::string bytes = "served";
    EXPECT_EQ(endpoint.server_send(6, bytes.data()), 6);
    EXPECT_EQ(other.receive(), "served");
    EXPECT_EQ(other.last_sender(), local_port(endpoint.server_socket()));
}

TEST_F(UdpServer, ReceivingFromAnEmptyQueueReturnsZeroAtOnceWithoutAMessage) {
    const ChildResult result = run_in_child([] {
        udpserver server;
        char bytes[8];
        server.open(nullptr);
        server.start_server(127, 0, 0, 1, 0, nullptr);
        std::printf("client %d, ", server.client_receive(8, bytes));
        std::printf("server %d\n", server.server_receive(8, bytes));
    });
    EXPECT_EQ(result.out,
              "UDPServer::open - Opening socket\n" + after_start("client 0, server 0\n", "127.0.0.1:0"));
    EXPECT_EQ(result.err, "");
}

TEST_F(UdpServer, ServerReceivesADatagramAndItsSender) {
    start();
    far.send(local_port(endpoint.server_socket()), "hello");
    ASSERT_TRUE(wait_readable(endpoint.server_socket()));
    EXPECT_EQ(endpoint.server_receive(64, room.data()), 5);
    EXPECT_STREQ(room.data(), "hello");
    EXPECT_EQ(text_of(endpoint.server_from()), "127.0.0.1:" + std::to_string(far.port()));
}

TEST_F(UdpServer, TheAnswerToAClientDatagramArrivesOnTheClientSocket) {
    open();
    start();
    EXPECT_EQ(endpoint.client_send(1, room.data()), 1);
    ASSERT_TRUE(far.receive());
    far.send(far.last_sender(), "answer");
    ASSERT_TRUE(wait_readable(endpoint.client_socket()));
    EXPECT_EQ(endpoint.server_receive(64, room.data()), 0);
    EXPECT_EQ(endpoint.client_receive(64, room.data()), 6);
    EXPECT_STREQ(room.data(), "answer");
    EXPECT_EQ(text_of(endpoint.client_from()), "127.0.0.1:" + std::to_string(far.port()));
}

TEST_F(UdpServer, ADatagramLongerThanTheRoomIsCut) {
    start();
    far.send(local_port(endpoint.server_socket()), "0123456789");
    far.send(local_port(endpoint.server_socket()), "next");
    EXPECT_EQ(endpoint.server_receive_blocking(4, room.data()), 4);
    EXPECT_STREQ(room.data(), "0123");
    EXPECT_EQ(endpoint.server_receive_blocking(64, room.data()), 4);
    EXPECT_STREQ(room.data(), "next");
}

TEST_F(UdpServer, AnEmptyDatagramReadsLikeAnEmptyQueue) {
    start();
    far.send(local_port(endpoint.server_socket()), "");
    far.send(local_port(endpoint.server_socket()), "x");
    ASSERT_TRUE(wait_readable(endpoint.server_socket()));
    EXPECT_EQ(endpoint.server_receive(64, room.data()), 0);
    ASSERT_TRUE(wait_readable(endpoint.server_socket()));
    EXPECT_EQ(endpoint.server_receive(64, room.data()), 1);
}

TEST_F(UdpServer, BlockingReceiveWaitsForTheDatagram) {
    open();
    start();
    EXPECT_EQ(endpoint.client_send(1, room.data()), 1);
    ASSERT_TRUE(far.receive());
    std::thread sender([&, receiver = getpid()] {
        wait_until_asleep(receiver);
        far.send(local_port(endpoint.server_socket()), "server");
        far.send(far.last_sender(), "client");
    });
    EXPECT_EQ(endpoint.server_receive_blocking(64, room.data()), 6);
    EXPECT_STREQ(room.data(), "server");
    EXPECT_EQ(text_of(endpoint.server_from()), "127.0.0.1:" + std::to_string(far.port()));
    EXPECT_EQ(endpoint.client_receive_blocking(64, room.data()), 6);
    EXPECT_STREQ(room.data(), "client");
    EXPECT_EQ(text_of(endpoint.client_from()), "127.0.0.1:" + std::to_string(far.port()));
    sender.join();
}

TEST_F(UdpServer, OnlyTheBlockingReceivesMayWait) {
    open();
    start();
    endpoint.set_server_destination_address(127, 0, 0, 1, far.port());
    const auto flags_of = [](int result) {
        EXPECT_EQ(result, 1);
        return last_transfer_flags;
    };
    EXPECT_EQ(flags_of(endpoint.client_send(1, room.data())), MSG_DONTWAIT);
    EXPECT_EQ(flags_of(endpoint.client_send(127, 0, 0, 1, far.port(), 1, room.data())), MSG_DONTWAIT);
    EXPECT_EQ(flags_of(endpoint.server_send(1, room.data())), MSG_DONTWAIT);
    const unsigned client = local_port(endpoint.client_socket());
    const unsigned server = local_port(endpoint.server_socket());
    far.send(client, "a");
    far.send(server, "a");
    ASSERT_TRUE(wait_readable(endpoint.client_socket()));
    ASSERT_TRUE(wait_readable(endpoint.server_socket()));
    EXPECT_EQ(flags_of(endpoint.client_receive(1, room.data())), MSG_DONTWAIT | MSG_WAITALL);
    EXPECT_EQ(flags_of(endpoint.server_receive(1, room.data())), MSG_DONTWAIT | MSG_WAITALL);
    far.send(client, "a");
    far.send(server, "a");
    EXPECT_EQ(flags_of(endpoint.client_receive_blocking(1, room.data())), 0);
    EXPECT_EQ(flags_of(endpoint.server_receive_blocking(1, room.data())), 0);
}

TEST_F(UdpServer, ABlockingReceiveReportsAnEmptyQueueToo) {
    const ChildResult result = run_in_child([] {
        nothing_waits = true;
        udpserver server;
        char bytes[8];
        const std::array<int, 4> results{server.client_receive(8, bytes), server.server_receive(8, bytes),
                                         server.client_receive_blocking(8, bytes),
                                         server.server_receive_blocking(8, bytes)};
        std::printf("%d %d %d %d", results[0], results[1], results[2], results[3]);
    });
    EXPECT_EQ(result.out, "0 0 -1 -1");
    EXPECT_EQ(result.err,
              "clientrecvb - recvfrom(): Resource temporarily unavailable\n"
              "servrecvb - recvfrom(: Resource temporarily unavailable\n");
}

TEST_F(UdpServer, EveryFailureHasItsOwnText) {
    const ChildResult result = run_in_child([] {
        const NoNewDescriptors limit;
        udpserver server;
        char bytes[8] = {};
        server.open(nullptr);
        server.start_server(127, 0, 0, 1, 0, nullptr);
        const std::array<int, 7> results{server.client_send(1, bytes),
                                         server.client_send(127, 0, 0, 1, 9, 1, bytes),
                                         server.client_receive(8, bytes),
                                         server.client_receive_blocking(8, bytes),
                                         server.server_send(1, bytes),
                                         server.server_receive(8, bytes),
                                         server.server_receive_blocking(8, bytes)};
        for (const int value : results) {
            std::printf("%d ", value);
        }
    });
    EXPECT_EQ(result.out,
              "UDPServer::open - Opening socket\n" + after_start("-1 -1 -1 -1 -1 -1 -1 ", "127.0.0.1:0"));
    EXPECT_EQ(result.err,
              "open - socket(): Too many open files\n"
              "UDPServer::openbroadcast - setsockopt(): Bad file descriptor\n"
              "startserver - socket(): Too many open files\n"
              "clientsend - sendto(): Bad file descriptor\n"
              "clientsend - sendto(): Bad file descriptor\n"
              "clientrecv - recvfrom(): Bad file descriptor\n"
              "clientrecvb - recvfrom(): Bad file descriptor\n"
              "servsend - sendto(): Bad file descriptor\n"
              "servrecv - recvfrom(): Bad file descriptor\n"
              "servrecvb - recvfrom(: Bad file descriptor\n");
}

TEST_F(UdpServerSignals, ADatagramOnTheServerSocketRaisesSigusr1) {
    ASSERT_EQ(endpoint.start_server(127, 0, 0, 1, 0, receive_on_server), 0);
    far.send(local_port(endpoint.server_socket()), "signal");
    ASSERT_TRUE(wait_for_notice());
    EXPECT_EQ(notice.signal_number, 10);
    EXPECT_EQ(std::string(notice.room.data(), static_cast<size_t>(notice.received)), "signal");
}

TEST_F(UdpServerSignals, AnyAddressServerRaisesSigusr1Too) {
    ASSERT_EQ(endpoint.start_server(0, receive_on_server), 0);
    far.send(local_port(endpoint.server_socket()), "any");
    ASSERT_TRUE(wait_for_notice());
    EXPECT_EQ(notice.signal_number, SIGUSR1);
}

TEST_F(UdpServerSignals, ADatagramOnTheClientSocketRaisesSigusr2) {
    ASSERT_EQ(endpoint.open(receive_on_client), 0);
    endpoint.set_client_destination_address(127, 0, 0, 1, far.port());
    EXPECT_EQ(endpoint.client_send(1, room.data()), 1);
    ASSERT_TRUE(far.receive());
    far.send(far.last_sender(), "answer");
    ASSERT_TRUE(wait_for_notice());
    EXPECT_EQ(notice.signal_number, 12);
    EXPECT_EQ(std::string(notice.room.data(), static_cast<size_t>(notice.received)), "answer");
}

TEST_F(UdpServerSignals, AHandlerMakesTheProcessTheOwnerAndReplacesTheStatusFlags) {
    ASSERT_EQ(endpoint.start_server(127, 0, 0, 1, 0, receive_on_server), 0);
    const int status_flags = O_ASYNC | O_NONBLOCK | O_APPEND;
    EXPECT_EQ(fcntl(endpoint.server_socket(), F_GETFL) & status_flags, O_ASYNC);
    EXPECT_EQ(fcntl(endpoint.server_socket(), F_GETOWN), getpid());
    EXPECT_EQ(fcntl(endpoint.server_socket(), F_GETSIG), SIGUSR1);
    ASSERT_EQ(endpoint.open(receive_on_client), 0);
    EXPECT_EQ(fcntl(endpoint.client_socket(), F_GETOWN), getpid());
    EXPECT_EQ(fcntl(endpoint.client_socket(), F_GETSIG), SIGUSR2);
    struct sigaction action {};
    sigaction(SIGUSR2, nullptr, &action);
    EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_RESTART | SA_NODEFER), 0);
}
