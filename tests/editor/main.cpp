#include <QApplication>
#include <QtTest>

int runLongPressTests(int argc, char **argv);
int runTintedIconTests(int argc, char **argv);

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    int failures = 0;
    failures += runLongPressTests(argc, argv);
    failures += runTintedIconTests(argc, argv);
    return failures;
}
