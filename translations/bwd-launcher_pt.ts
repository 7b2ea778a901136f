<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="pt_BR" sourcelanguage="en">
<context>
    <name>MainWindow</name>
    <message>
        <source>Launcher</source>
        <translation>Inicializador</translation>
    </message>
</context>
</TS>
