#include "daemons/common/watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/common/file.h"
#include "daemons/common/traces.h"

namespace {

constexpr char PROGRAM[] = "zelan-watch";
constexpr char SOCKET_FILE[] = "/run/zelan/watch";
// Held while the watcher is started or ends.
constexpr char LOCK_FILE[] = "/run/zelan/watch.lock";

// A watcher that removes hundreds of interfaces answers when that is done.
constexpr int ANSWER_MILLISECONDS = 30000;
constexpr int LOCK_MILLISECONDS = 10000;
constexpr int LOCK_POLL_MILLISECONDS = 2;

// Daemons that may be waiting while the watcher is busy.
constexpr int BACKLOG = 512;

sockaddr_un SocketAddress() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    static_assert(sizeof SOCKET_FILE <= sizeof address.sun_path);
    memcpy(address.sun_path, SOCKET_FILE, sizeof SOCKET_FILE);
    return address;
}

// The folder must be root's and nobody else's, or what stands in it proves nothing.
bool MakeFolder() {
    struct stat status = {};
    if ((mkdir(WATCH_FOLDER, S_IRWXU) != 0 && errno != EEXIST) || lstat(WATCH_FOLDER, &status) != 0) {
        Complain("%s: %s", WATCH_FOLDER, strerror(errno));
        return false;
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() ||
        (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        Complain("%s is no folder of root alone", WATCH_FOLDER);
        return false;
    }
    return true;
}

FileDescriptor TakeLock(int milliseconds) {
    FileDescriptor file(open(LOCK_FILE, O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    int left = milliseconds;
    while (file && flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || left <= 0) {
            file.reset();
        } else {
            poll(nullptr, 0, LOCK_POLL_MILLISECONDS);
            left -= LOCK_POLL_MILLISECONDS;
        }
    }
    return file;
}

FileDescriptor Connect() {
    const sockaddr_un address = SocketAddress();
    // A watcher that hangs is not waited for without end, even when its queue is full.
    const timeval patience = {ANSWER_MILLISECONDS / 1000, 0};
    FileDescriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (connection) {
        setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    if (connection &&
        connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        connection.reset();
    }
    return connection;
}

// Why Connect has failed, by errno. Beside a watcher that hangs there must be no second: each would take the
// networks of the other for unused.
bool NobodyListens() {
    return errno == ECONNREFUSED || errno == ENOENT;
}

FileDescriptor Listen() {
    const sockaddr_un address = SocketAddress();
    unlink(SOCKET_FILE);
    FileDescriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (listener &&
        (bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
         listen(listener.get(), BACKLOG) != 0)) {
        listener.reset();
    }
    return listener;
}

// The watcher is told from all that the caller has by what it finds as its standard input.
[[noreturn]] void Execute(const FileDescriptor &listener, int log) {
    char path[PATH_MAX];
    ssize_t size = readlink("/proc/self/exe", path, sizeof path);
    std::string program(path, size > 0 ? static_cast<size_t>(size) : 0);
    program.erase(program.rfind('/') + 1);
    program += PROGRAM;
    // From a standard input that it already is the flag would not go.
    if (dup2(listener.get(), STDIN_FILENO) == STDIN_FILENO && fcntl(STDIN_FILENO, F_SETFD, 0) == 0) {
        setsid();
        if (log >= 0) {
            dup2(log, STDOUT_FILENO);
            dup2(log, STDERR_FILENO);
        }
        const char *vector[] = {program.c_str(), "--serve", nullptr};
        execv(vector[0], const_cast<char **>(vector));
    }
    Complain("cannot start %s: %s", program.c_str(), strerror(errno));
    _exit(EXIT_FAILURE);
}

int WaitForEnd(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// Connections are taken from the moment of the socket's making, whenever the watcher comes to it. It is no
// child of the caller's, who may wait for all of those that it has.
bool StartWatcher(int log) {
    FileDescriptor listener = Listen();
    pid_t child = listener ? fork() : -1;
    if (child == 0) {
        if (fork() == 0) {
            Execute(listener, log);
        }
        _exit(EXIT_SUCCESS);
    }
    if (child < 0) {
        Complain("cannot start %s: %s", PROGRAM, strerror(errno));
        return false;
    }
    return WaitForEnd(child) == 0;
}

}  // namespace

FileDescriptor Watch_Connect(int log) {
    FileDescriptor connection;
    if (!MakeFolder()) {
        return connection;
    }
    connection = Connect();
    if (!connection && NobodyListens()) {
        FileDescriptor lock = TakeLock(LOCK_MILLISECONDS);
        connection = Connect();
        if (!connection && lock && NobodyListens() && StartWatcher(log)) {
            connection = Connect();
        }
    }
    if (!connection) {
        Complain("cannot reach %s: %s", PROGRAM, strerror(errno));
    }
    return connection;
}

std::string Watch_Ask(const FileDescriptor &connection, std::string_view request, int descriptor) {
    char answer[WATCH_MESSAGE_SIZE];
    pollfd ready = {connection.get(), POLLIN, 0};
    ssize_t size = -1;
    if (Watch_Send(connection, request, descriptor)) {
        int waited = 0;
        while ((waited = poll(&ready, 1, ANSWER_MILLISECONDS)) < 0 && errno == EINTR) {
        }
        errno = waited == 0 ? ETIMEDOUT : errno;
        size = waited > 0 ? recv(connection.get(), answer, sizeof answer, MSG_DONTWAIT) : -1;
        errno = size == 0 ? ECONNRESET : errno;
    }
    if (size <= 0) {
        Complain("%s does not answer: %s", PROGRAM, strerror(errno));
        return {};
    }
    return std::string(answer, static_cast<size_t>(size));
}

std::string Watch_AskFirst(FileDescriptor *connection, std::string_view request, int log) {
    std::string answer = Watch_Ask(*connection, request);
    if (answer.empty()) {
        *connection = Watch_Connect(log);
        answer = *connection ? Watch_Ask(*connection, request) : answer;
    }
    return answer;
}

bool Watch_Send(const FileDescriptor &connection, std::string_view text, int descriptor) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
    iovec content = {const_cast<char *>(text.data()), text.size()};
    msghdr message = {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    if (descriptor >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr *part = CMSG_FIRSTHDR(&message);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(sizeof descriptor);
        memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
    }
    return sendmsg(connection.get(), &message, MSG_NOSIGNAL) >= 0;
}

bool Watch_Receive(const FileDescriptor &connection, std::string *text, FileDescriptor *descriptor) {
    char buffer[WATCH_MESSAGE_SIZE];
    int received = -1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof received)] = {};
    iovec content = {buffer, sizeof buffer};
    msghdr message = {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t size = recvmsg(connection.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size <= 0) {
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    cmsghdr *part = CMSG_FIRSTHDR(&message);
    if (part != nullptr && part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_RIGHTS) {
        memcpy(&received, CMSG_DATA(part), sizeof received);
    }
    descriptor->reset(received);
    text->assign(buffer, static_cast<size_t>(size));
    return true;
}

FileDescriptor Watch_Accept(const FileDescriptor &listener) {
    return FileDescriptor(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

bool Watch_Close(FileDescriptor *listener, std::vector<FileDescriptor> *late) {
    FileDescriptor lock = TakeLock(0);
    if (!lock) {
        return false;
    }
    unlink(SOCKET_FILE);
    // From here on connections are refused, but some may have been made before.
    shutdown(listener->get(), SHUT_RDWR);
    while (FileDescriptor connection = Watch_Accept(*listener)) {
        late->push_back(std::move(connection));
    }
    if (late->empty()) {
        return true;
    }
    *listener = Listen();
    return false;
}
