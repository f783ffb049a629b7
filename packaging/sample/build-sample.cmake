# cmake -DMSI=out.msi -DCODE={product-code} -DVERSION=4.50.0 -DFAIL=no|yes -DBIN=dir -DDRIVERS=dir -DSOURCE=packaging-dir
#       -DSTAGE=work-dir -P build-sample.cmake
# wixl takes source files by relative path only, so the payload is staged
# first; msibuild then writes what wixl leaves out (rollback type, the
# upgrade's RemoveExistingProducts after InstallFinalize, secure properties).
file(REMOVE_RECURSE ${STAGE})
file(MAKE_DIRECTORY ${STAGE}/bin ${STAGE}/drivers)
file(COPY ${BIN}/zKCoreInst.dll ${BIN}/zKCoreHost.dll ${BIN}/zKSampleFailure.dll DESTINATION ${STAGE}/bin)
file(GLOB packages ${DRIVERS}/*.inf ${DRIVERS}/*.sys ${DRIVERS}/*.cat)
file(COPY ${packages} DESTINATION ${STAGE}/drivers)
execute_process(COMMAND wixl -a x64 -I ${SOURCE} -D ProductCode=${CODE} -D Version=${VERSION} -D ZkBinDir=bin -D DriverDir=drivers
                        -D Fail=${FAIL} -o ${MSI} ${SOURCE}/sample/Sample.wxs
                WORKING_DIRECTORY ${STAGE} ERROR_VARIABLE noise COMMAND_ERROR_IS_FATAL ANY)
function(sql statement)
  execute_process(COMMAND msibuild ${MSI} -q "${statement}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()
# Rollback (0x100) + in script (0x400) + no impersonation (0x800) + DLL (1) + ignore result (0x40).
sql("UPDATE `CustomAction` SET `Type`=3393 WHERE `Action`='CoreRollback'")
sql("UPDATE `InstallExecuteSequence` SET `Sequence`=6610 WHERE `Action`='RemoveExistingProducts'")
sql("UPDATE `Property` SET `Value`='WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED;ZK_READERS;ZK_FAKE_READER;ZK_MINIMAL_HW;ZK_CLEAR_REGISTRY;ZK_UPGRADE_FROM' WHERE `Property`='SecureCustomProperties'")
