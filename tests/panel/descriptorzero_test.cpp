#include "descriptorzero.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTest>

namespace {

bool is_null_device(int descriptor) {
    struct stat opened = {};
    struct stat null_device = {};
    return fstat(descriptor, &opened) == 0 && stat("/dev/null", &null_device) == 0 &&
           opened.st_rdev == null_device.st_rdev && opened.st_ino == null_device.st_ino;
}

int descriptors_open() {
    int count = 0;
    for (int descriptor = 0; descriptor < 256; descriptor++) {
        count += fcntl(descriptor, F_GETFD) != -1 ? 1 : 0;
    }
    return count;
}

// The test's own descriptor 0, put back when the test is over.
class OwnDescriptorZero {
public:
    OwnDescriptorZero() : saved_(fcntl(0, F_DUPFD_CLOEXEC, 100)) {}
    ~OwnDescriptorZero() {
        dup2(saved_, 0);
        close(saved_);
    }
    OwnDescriptorZero(const OwnDescriptorZero&) = delete;
    OwnDescriptorZero& operator=(const OwnDescriptorZero&) = delete;

private:
    int saved_;
};

// Puts a device there that reads as zeros.
void put_zeros_on_descriptor_zero() {
    const int zeros = open("/dev/zero", O_RDWR);
    if (zeros > 0) {
        dup2(zeros, 0);
        close(zeros);
    }
}

}  // namespace

class DescriptorZeroTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fillingAFreeDescriptorPutsTheNullDeviceThere();
    void fillingATakenDescriptorLeavesItAlone();
    void fillingTwiceOpensOnce();
    void puttingReplacesWhatIsThere();
    void puttingTakesAFreeDescriptor();
    void anyDescriptorIsReplaced();
    void replacingKeepsDescriptorZeroTaken();
    void aNullDeviceThatCannotBeOpenedLeavesTheDescriptorFree();
};

void DescriptorZeroTest::fillingAFreeDescriptorPutsTheNullDeviceThere() {
    const OwnDescriptorZero own;
    close(0);
    const int before = descriptors_open();
    fill_descriptor_zero();
    QVERIFY(is_null_device(0));
    QCOMPARE(descriptors_open(), before + 1);
    char byte = 0;
    QCOMPARE(read(0, &byte, 1), ssize_t{0});
    QCOMPARE(write(0, "abcd", 4), ssize_t{4});
}

void DescriptorZeroTest::fillingATakenDescriptorLeavesItAlone() {
    const OwnDescriptorZero own;
    put_zeros_on_descriptor_zero();
    const int before = descriptors_open();
    fill_descriptor_zero();
    char byte = 1;
    QCOMPARE(read(0, &byte, 1), ssize_t{1});
    QCOMPARE(descriptors_open(), before);
}

void DescriptorZeroTest::fillingTwiceOpensOnce() {
    const OwnDescriptorZero own;
    close(0);
    fill_descriptor_zero();
    const int once = descriptors_open();
    fill_descriptor_zero();
    QCOMPARE(descriptors_open(), once);
}

void DescriptorZeroTest::puttingReplacesWhatIsThere() {
    const OwnDescriptorZero own;
    put_zeros_on_descriptor_zero();
    const int before = descriptors_open();
    put_null_on_descriptor_zero();
    QVERIFY(is_null_device(0));
    QCOMPARE(descriptors_open(), before);
    char byte = 0;
    QCOMPARE(read(0, &byte, 1), ssize_t{0});
    QCOMPARE(write(0, "abcd", 4), ssize_t{4});
}

void DescriptorZeroTest::puttingTakesAFreeDescriptor() {
    const OwnDescriptorZero own;
    close(0);
    const int before = descriptors_open();
    put_null_on_descriptor_zero();
    QVERIFY(is_null_device(0));
    QCOMPARE(descriptors_open(), before + 1);
}

void DescriptorZeroTest::anyDescriptorIsReplaced() {
    const int zeros = open("/dev/zero", O_RDWR | O_CLOEXEC);
    const int before = descriptors_open();
    put_null_on_descriptor(zeros);
    QVERIFY(is_null_device(zeros));
    QCOMPARE(descriptors_open(), before);
    close(zeros);
}

void DescriptorZeroTest::replacingKeepsDescriptorZeroTaken() {
    const OwnDescriptorZero own;
    const int zeros = open("/dev/zero", O_RDWR | O_CLOEXEC);
    close(0);
    put_null_on_descriptor(zeros);
    QVERIFY(is_null_device(zeros));
    QVERIFY(is_null_device(0));
    close(zeros);
}

void DescriptorZeroTest::aNullDeviceThatCannotBeOpenedLeavesTheDescriptorFree() {
    const OwnDescriptorZero own;
    close(0);
    rlimit usual = {};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none = {0, usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    fill_descriptor_zero();
    put_null_on_descriptor_zero();
    const int flags = fcntl(0, F_GETFD);
    setrlimit(RLIMIT_NOFILE, &usual);
    QCOMPARE(flags, -1);
}

QTEST_APPLESS_MAIN(DescriptorZeroTest)
#include "descriptorzero_test.moc"
