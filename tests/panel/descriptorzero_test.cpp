#include "descriptorzero.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTest>
#include <cstdio>

#include "tests/support/childprocess.h"

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

// Reads, writes and counts what descriptor 0 is now.
void print_descriptor_zero() {
    char byte = 0;
    std::printf("%s, read %zd, write %zd, %d open", is_null_device(0) ? "null" : "other", read(0, &byte, 1),
                write(0, "abcd", 4), descriptors_open());
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
    void aNullDeviceThatCannotBeOpenedLeavesTheDescriptorFree();
};

void DescriptorZeroTest::fillingAFreeDescriptorPutsTheNullDeviceThere() {
    const ChildResult result = run_in_child([] {
        close(0);
        const int before = descriptors_open();
        fill_descriptor_zero();
        print_descriptor_zero();
        std::printf(", %d before", before);
    });
    const QString out = QString::fromStdString(result.out);
    const int after = out.section(QLatin1Char(' '), 5, 5).toInt();
    QCOMPARE(out, QStringLiteral("null, read 0, write 4, %1 open, %2 before").arg(after).arg(after - 1));
}

void DescriptorZeroTest::fillingATakenDescriptorLeavesItAlone() {
    const ChildResult result = run_in_child([] {
        dup2(open("/dev/zero", O_RDWR), 0);
        const int before = descriptors_open();
        fill_descriptor_zero();
        char byte = 1;
        const ssize_t count = read(0, &byte, 1);
        std::printf("%zd %d %d", count, byte, descriptors_open() - before);
    });
    QCOMPARE(QByteArray::fromStdString(result.out), QByteArray("1 0 0"));
}

void DescriptorZeroTest::fillingTwiceOpensOnce() {
    const ChildResult result = run_in_child([] {
        close(0);
        fill_descriptor_zero();
        const int once = descriptors_open();
        fill_descriptor_zero();
        std::printf("%d", descriptors_open() - once);
    });
    QCOMPARE(QByteArray::fromStdString(result.out), QByteArray("0"));
}

void DescriptorZeroTest::puttingReplacesWhatIsThere() {
    const ChildResult result = run_in_child([] {
        dup2(open("/dev/zero", O_RDWR), 0);
        const int before = descriptors_open();
        put_null_on_descriptor_zero();
        std::printf("%d %d", is_null_device(0), descriptors_open() - before);
    });
    QCOMPARE(QByteArray::fromStdString(result.out), QByteArray("1 0"));
}

void DescriptorZeroTest::puttingTakesAFreeDescriptor() {
    const ChildResult result = run_in_child([] {
        close(0);
        const int before = descriptors_open();
        put_null_on_descriptor_zero();
        std::printf("%d %d", is_null_device(0), descriptors_open() - before);
    });
    QCOMPARE(QByteArray::fromStdString(result.out), QByteArray("1 1"));
}

void DescriptorZeroTest::aNullDeviceThatCannotBeOpenedLeavesTheDescriptorFree() {
    const ChildResult result = run_in_child([] {
        close(0);
        rlimit usual = {};
        getrlimit(RLIMIT_NOFILE, &usual);
        const rlimit none = {0, usual.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        fill_descriptor_zero();
        put_null_on_descriptor_zero();
        std::printf("%d", fcntl(0, F_GETFD));
        setrlimit(RLIMIT_NOFILE, &usual);
    });
    QCOMPARE(QByteArray::fromStdString(result.out), QByteArray("-1"));
}

QTEST_APPLESS_MAIN(DescriptorZeroTest)
#include "descriptorzero_test.moc"
