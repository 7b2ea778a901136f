<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="pt_BR" sourcelanguage="en">
<context>
    <name>MainWindow</name>
    <message>
        <source>Launcher</source>
        <translation>Inicializador</translation>
    </message>
    <message>
        <source>Calculating...</source>
        <translation>Calculando...</translation>
    </message>
    <message>
        <source>Install</source>
        <translation>Instalar</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Atualizar</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Jogar</translation>
    </message>
    <message>
        <source>Checking for updates</source>
        <translation>Verificando atualizações</translation>
    </message>
    <message>
        <source>Updating</source>
        <translation>Atualizando</translation>
    </message>
    <message>
        <source>Installing</source>
        <translation>Instalando</translation>
    </message>
    <message>
        <source>Launching</source>
        <translation>Iniciando</translation>
    </message>
    <message>
        <source>Playing</source>
        <translation>Jogando</translation>
    </message>
    <message>
        <source>Download Error</source>
        <translation>Erro de download</translation>
    </message>
    <message>
        <source>Launch Failed</source>
        <translation>Falha ao iniciar</translation>
    </message>
    <message>
        <source>Game executable not found. Please verify your installation.</source>
        <translation>Executável do jogo não encontrado. Verifique sua instalação.</translation>
    </message>
    <message>
        <source>Failed to launch the game. Please verify your installation.</source>
        <translation>Falha ao iniciar o jogo. Verifique sua instalação.</translation>
    </message>
    <message>
        <source>Legacy Installation Detected</source>
        <translation>Instalação Antiga Detectada</translation>
    </message>
    <message>
        <source>We have detected a legacy installation. Would you like to migrate old files to the new installation path?</source>
        <translation>Detectamos uma instalação antiga. Deseja migrar os arquivos antigos para o novo caminho de instalação?</translation>
    </message>
    <message>
        <source>Migration Complete</source>
        <translation>Migração Concluída</translation>
    </message>
    <message>
        <source>Old files have been migrated to the new installation path successfully!</source>
        <translation>Os arquivos antigos foram migrados com sucesso para o novo caminho de instalação!</translation>
    </message>
    <message>
        <source>Migration Failed</source>
        <translation>Falha na Migração</translation>
    </message>
    <message>
        <source>Failed to migrate old files to the new installation path.</source>
        <translation>Falha ao migrar os arquivos antigos para o novo caminho de instalação.</translation>
    </message>
</context>
</TS>
