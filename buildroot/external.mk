include $(sort $(wildcard $(BR2_EXTERNAL_ZELCLI_PATH)/package/*/*.mk))
