#ifndef TARVISNET_TESTS_TESTCLASS_H
#define TARVISNET_TESTS_TESTCLASS_H

#include <QtTest/QTest>

/// Test classes of a program that has several. Its main() is that of testmain.cpp, and its first
/// argument says which of them is to run:
///
///     client_tests tst_tarvisnet_queue sendsVerbOfKind
namespace testclasses {

using Run = int (*)(int argc, char *argv[]);

void add(const char *name, Run run);

} // namespace testclasses

/// Adds the class \a Tests to its program, under the name that CTest has for it:
///
///     const TestClass<tst_TarvisNetQueue> testClass("tst_tarvisnet_queue");
template <typename Tests>
class TestClass {
public:
    explicit TestClass(const char *name) { testclasses::add(name, &run); }

private:
    static int run(int argc, char *argv[])
    {
        Tests tests;
        return QTest::qExec(&tests, argc, argv);
    }
};

#endif // TARVISNET_TESTS_TESTCLASS_H
