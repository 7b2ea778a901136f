<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="pt_BR" sourcelanguage="en">
<context>
    <name>MainWindow</name>
    <message>
        <source>Browse</source>
        <translation>Explorar</translation>
    </message>
    <message>
        <source>Calculating...</source>
        <translation>Calculando...</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Cancelar</translation>
    </message>
    <message>
        <source>Check for Updates</source>
        <translation>Verificar Atualizações</translation>
    </message>
    <message>
        <source>Checking for updates</source>
        <translation>Verificando atualizações</translation>
    </message>
    <message>
        <source>Confirm</source>
        <translation>Confirmar</translation>
    </message>
    <message>
        <source>Confirm Location Change</source>
        <translation>Confirmar Alteração de Local</translation>
    </message>
    <message>
        <source>Disable Animations</source>
        <translation>Desativar Animações</translation>
    </message>
    <message>
        <source>Discord</source>
        <translation>Discord</translation>
    </message>
    <message>
        <source>Download Error</source>
        <translation>Erro no Download</translation>
    </message>
    <message>
        <source>Enable Animations</source>
        <translation>Ativar Animações</translation>
    </message>
    <message>
        <source>Error</source>
        <translation>Erro</translation>
    </message>
    <message>
        <source>Failed to launch the game. Please verify your installation.</source>
        <translation>Falha ao iniciar o jogo. Verifique sua instalação.</translation>
    </message>
    <message>
        <source>Failed to migrate old files to the new installation path.</source>
        <translation>Falha ao migrar os arquivos antigos para o novo caminho de instalação.</translation>
    </message>
    <message>
        <source>Failed to move game files. Please try again.</source>
        <translation>Falha ao mover os arquivos do jogo. Por favor, tente novamente.</translation>
    </message>
    <message>
        <source>Game Files Location</source>
        <translation>Localização dos Arquivos do Jogo</translation>
    </message>
    <message>
        <source>Game executable not found. Please verify your installation.</source>
        <translation>O executável do jogo não foi encontrado. Verifique sua instalação.</translation>
    </message>
    <message>
        <source>Game files moved successfully.</source>
        <translation>Arquivos do jogo movidos com sucesso.</translation>
    </message>
    <message>
        <source>Install</source>
        <translation>Instalar</translation>
    </message>
    <message>
        <source>Installing</source>
        <translation>Instalando</translation>
    </message>
    <message>
        <source>Language</source>
        <translation>Idioma</translation>
    </message>
    <message>
        <source>Launch Failed</source>
        <translation>Falha ao Iniciar</translation>
    </message>
    <message>
        <source>Launcher</source>
        <translation>Launcher</translation>
    </message>
    <message>
        <source>Launching</source>
        <translation>Iniciando</translation>
    </message>
    <message>
        <source>Legacy Installation Detected</source>
        <translation>Instalação Antiga Detectada</translation>
    </message>
    <message>
        <source>Migration Complete</source>
        <translation>Migração Concluída</translation>
    </message>
    <message>
        <source>Migration Failed</source>
        <translation>Falha na Migração</translation>
    </message>
    <message>
        <source>Modify Install</source>
        <translation>Modificar Instalação</translation>
    </message>
    <message>
        <source>New Player Guide</source>
        <translation>Guia de Jogo</translation>
    </message>
    <message>
        <source>Old files have been migrated to the new installation path successfully!</source>
        <translation>Os arquivos antigos foram migrados com sucesso para o novo caminho de instalação!</translation>
    </message>
    <message>
        <source>Patch Notes</source>
        <translation>Atualizações</translation>
    </message>
    <message>
        <source>Play</source>
        <translation>Jogar</translation>
    </message>
    <message>
        <source>Playing</source>
        <translation>Jogando</translation>
    </message>
    <message>
        <source>Please select where you would like to install the game.</source>
        <translation>Selecione onde deseja instalar o jogo.</translation>
    </message>
    <message>
        <source>Hollowmere Wiki</source>
        <translation>Hollowmere Wiki</translation>
    </message>
    <message>
        <source>Select Game Files Directory</source>
        <translation>Selecionar Pasta dos Arquivos do Jogo</translation>
    </message>
    <message>
        <source>Shop</source>
        <translation>Loja</translation>
    </message>
    <message>
        <source>Show in Explorer</source>
        <translation>Mostrar na Pasta</translation>
    </message>
    <message>
        <source>Success</source>
        <translation>Sucesso</translation>
    </message>
    <message>
        <source>Twitch</source>
        <translation>Twitch</translation>
    </message>
    <message>
        <source>Twitter (X)</source>
        <translation>Twitter (X)</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>Desinstalar</translation>
    </message>
    <message>
        <source>Update</source>
        <translation>Atualizar</translation>
    </message>
    <message>
        <source>Updating</source>
        <translation>Atualizando</translation>
    </message>
    <message>
        <source>Warning: Changing the location might require a full reinstallation of the game.</source>
        <translation>Aviso: Alterar o local pode exigir a reinstalação completa do jogo.</translation>
    </message>
    <message>
        <source>We have detected a legacy installation. Would you like to migrate old files to the new installation path?</source>
        <translation>Detectamos uma instalação antiga. Deseja migrar os arquivos antigos para o novo caminho de instalação?</translation>
    </message>
    <message>
        <source>Website</source>
        <translation>Site</translation>
    </message>
    <message>
        <source>Would you like to move your current game files to the new location?</source>
        <translation>Deseja mover seus arquivos atuais do jogo para o novo local?</translation>
    </message>
    <message>
        <source>YouTube</source>
        <translation>YouTube</translation>
    </message>
</context>
</TS>
