#include <QApplication>
#include <QtTest>

int runColorPickerTests(int argc, char **argv);
int runLongPressTests(int argc, char **argv);
int runTintedIconTests(int argc, char **argv);

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    int failures = 0;
    failures += runColorPickerTests(argc, argv);
    failures += runLongPressTests(argc, argv);
    failures += runTintedIconTests(argc, argv);
    return failures;
}
